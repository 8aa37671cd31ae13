#include "home/web_events.h"

#include "home/web_connection.h"
#include "home/web_routes.h"

#include <algorithm>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string.h>
#include <time.h>

namespace {

constexpr size_t streams_most = 8, waiting_most = 200;
constexpr int64_t beat_every_ms = 15000, silent_most_ms = 60000;
constexpr size_t block_size = 2048;

constexpr struct {
    fact_kind kind;
    const char *name;
} event_names[] = {
    {fact_session, "session"}, {fact_alert, "alert"}, {fact_device, "device"}, {fact_gap, "gap"}, {fact_now, "now"}};

void wake(event_stream *stream)
{
    if (stream->suspended)
        MHD_resume_connection(stream->connection);
    stream->suspended = false;
}

// The client sees the connection's end and, if it lives, asks anew.
void cut(event_stream *stream)
{
    if (const web_connection *record = connection_of(stream->connection))
        shutdown(record->fd, SHUT_RDWR);
    stream->ending = true;
    stream->server->counts[web_count_streams_cut]++;
    wake(stream);
}

void add_event(event_stream *stream, const std::string &text)
{
    if (std::find(stream->waiting.begin(), stream->waiting.end(), text) == stream->waiting.end())
        stream->waiting.push_back(text);
    if (stream->waiting.size() > waiting_most && !stream->ending)
        return cut(stream);
    wake(stream);
}

std::string event_text(const char *name, const std::string &mac)
{
    return std::string("event: ") + name + "\ndata: {" + (mac.empty() ? "" : "\"device\":\"" + mac + "\"") + "}\n\n";
}

// libmicrohttpd asks for what to send next.
ssize_t send_events(void *context, uint64_t, char *out, size_t room)
{
    event_stream *stream = static_cast<event_stream *>(context);
    int64_t now = uptime_ms();
    if (stream->sending.empty()) {
        stream->taken_ms = now;
        for (const std::string &text : stream->waiting)
            stream->sending += "id: " + std::to_string(++stream->server->events.last_id) + "\n" + text;
        stream->waiting.clear();
    }
    if (!stream->sending.empty()) {
        size_t size = std::min(room, stream->sending.size());
        memcpy(out, stream->sending.data(), size);
        stream->sending.erase(0, size);
        stream->beat_ms = now;
        return static_cast<ssize_t>(size);
    }
    if (stream->ending)
        return MHD_CONTENT_READER_END_OF_STREAM;
    MHD_suspend_connection(stream->connection);
    stream->suspended = true;
    return 0;
}

void forget_stream(void *context)
{
    event_stream *gone = static_cast<event_stream *>(context);
    gone->server->events.open.remove_if([&](const event_stream &one) { return &one == gone; });
}

} // namespace

void tell_streams(void *context, const fact &news)
{
    web_server *server = static_cast<web_server *>(context);
    if (server->events.open.empty())
        return;
    std::string mac;
    int64_t person = 0;
    if (news.device) {
        statement row(&server->home->all.db, "SELECT mac,coalesce(person,0) FROM device WHERE id=?", news.device);
        if (!row.row())
            return;
        mac = row.text(0);
        person = row.number(1);
    }
    for (const auto &one : event_names) {
        for (event_stream &stream : server->events.open) {
            bool own = stream.who.kind != kind_child || !news.device || (person && person == stream.who.person);
            if (one.kind == news.kind && own)
                add_event(&stream, event_text(one.name, mac));
        }
    }
}

int64_t keep_streams(web_server *server, int64_t now_ms)
{
    int64_t next = INT64_MAX;
    for (event_stream &one : server->events.open) {
        if (!one.ending && !one.suspended && now_ms - one.taken_ms >= silent_most_ms)
            cut(&one);
        if (!one.ending && one.suspended && now_ms - one.beat_ms >= beat_every_ms) {
            // Logged out meanwhile, deleted, or another person's now.
            account who;
            one.ending = !find_login(&server->home->all.db, one.session, time(nullptr), &who) || who.kind != one.who.kind ||
                         who.person != one.who.person;
            one.sending = one.ending ? "" : ":\n\n";
            wake(&one);
        }
        next = std::min(next, one.suspended ? one.beat_ms + beat_every_ms : one.taken_ms + silent_most_ms);
    }
    return std::max(next, now_ms);
}

void end_streams(web_server *server)
{
    for (event_stream &one : server->events.open) {
        one.ending = true;
        wake(&one);
    }
}

void answer_events(web_request *asked, web_answer *answer)
{
    web_server *server = asked->server;
    web_connection *record = connection_of(asked->connection);
    if (server->events.open.size() >= streams_most || !record)
        return refuse(answer, refused_busy);
    int64_t now = uptime_ms();
    // The first event has the page fetch what it missed.
    server->events.open.push_back({server,
                                   asked->connection,
                                   asked->who,
                                   asked->session,
                                   {event_text("status", "")},
                                   "retry: 3000\n\n",
                                   false,
                                   false,
                                   now,
                                   now});
    answer->response = MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, block_size, send_events, &server->events.open.back(),
                                                         forget_stream);
    if (!answer->response) {
        server->events.open.pop_back();
        return refuse(answer, refused_busy);
    }
    // Waits longer than a request may; a client that is gone is noticed when what it was sent is not acknowledged.
    unsigned int unacknowledged_most_ms = 30000;
    MHD_set_connection_option(asked->connection, MHD_CONNECTION_OPTION_TIMEOUT, 0u);
    setsockopt(record->fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &unacknowledged_most_ms, sizeof(unacknowledged_most_ms));
    record->stream = true;
    server->counts[web_count_streams]++;
    answer->type = "text/event-stream";
    answer->headers.push_back({"Cache-Control", "no-store"});
    answer->headers.push_back({"X-Accel-Buffering", "no"});
}
