// Client side of the request socket, for tools: one request, one answer, a time limit.
//
// Needs no daemon code and no privilege beyond the socket's rights.
#ifndef PLATFORM_LINUX_CLIENT_REQUEST_CLIENT_H
#define PLATFORM_LINUX_CLIENT_REQUEST_CLIENT_H

#include "common/guards.h"
#include "igd/igd_types.h"

#include <stddef.h>

enum request_outcome {
    request_done,           // the daemon answered 0
    request_refused,        // the daemon answered -1, or the peer check turned us away
    request_unreachable,    // nobody listens at the path, or no right to connect
    request_timed_out,      // connected, no answer in time
    request_malformed,      // the request is too large or makes no sense
    request_server_foreign, // who listens at the path is neither root nor the daemon's user; nothing was sent
};

struct client_request {
    unsigned int id;
    const char *device;                   // MAC text (6, 7, 11, 12) or the device-list text (8, 9)
    const char *text;                     // limits text (11), input (1000 and up)
    appident_payment_notify_st *switches; // 13 in; 14 in and out
    unsigned int action;                  // 13: 1, 2 or 3; 14: 1
};

struct client_answer {
    heap_text text;     // 6 to 9, 12, 1000 and up; terminated, null when there is nothing to report
    size_t full_length; // as the daemon reports it; more than the text has when it was cut
};

request_outcome call_daemon(const char *socket_path, int timeout_ms, const client_request &request, client_answer *answer);

#endif
