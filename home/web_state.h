// What the page's server keeps, for its parts: web_*.cpp.
#ifndef HOME_WEB_STATE_H
#define HOME_WEB_STATE_H

#include "home/client_limits.h"
#include "home/serve.h"
#include "home/web_events.h"
#include "home/web_request.h"
#include "home/web_server.h"

#include <array>
#include <list>

struct MHD_Daemon;

// "web" of the settings, and the token of "metrics".
struct web_settings {
    std::vector<std::string> hosts; // more own names
    std::string certificate, key;   // paths; both or none
    std::string files;              // directory of the page
    std::string tool;               // appidentctl, whose doctor is asked
    std::string metrics_token;      // "": the box itself only
};

// Where it listens, or wants to.
struct web_place {
    std::string address;
    int64_t port = 0;
    int64_t certificate_time = 0, key_time = 0; // when the files were changed
};
inline bool operator==(const web_place &one, const web_place &other)
{
    return one.address == other.address && one.port == other.port && one.certificate_time == other.certificate_time &&
           one.key_time == other.key_time;
}

// Counted beside the refusals.
// clang-format off
#define WEB_COUNTS(row) \
    row(requests,            "requests answered") \
    row(connections_unused,  "connections that ended without a request") \
    row(connections_stalled, "connections ended: a request took longer than a minute") \
    row(logins,              "logins") \
    row(streams,             "streams of events begun") \
    row(streams_cut,         "of them ended: the client was too slow")
// clang-format on
#define WEB_COUNT_ID(name, meaning) web_count_##name,
enum web_count : u32 { WEB_COUNTS(WEB_COUNT_ID) web_count_end };
#undef WEB_COUNT_ID

// An open connection; from its first byte to its last.
struct web_connection {
    int fd;
    int64_t since_ms; // when it was opened, or its last request answered
    bool stream;      // of events, which last
    bool used;        // a request came
};

struct web_server {
    household *home = nullptr;
    web_settings settings;
    web_place place; // where it listens, as long as `daemon` is there
    MHD_Daemon *daemon = nullptr;
    std::string certificate, key;   // their texts, which libmicrohttpd goes on using
    std::vector<std::string> names; // of its own that a Host may say, in lower case
    client_limits limits;
    event_streams events;
    std::list<web_connection> connections;
    std::array<int64_t, web_refusal_end> refusals = {};
    std::array<int64_t, web_count_end> counts = {};
    std::string said; // the last trouble that was told on standard error
    int64_t next_look_ms = 0;
};

#endif
