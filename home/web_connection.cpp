#include "home/web_connection.h"

#include "home/lan_address.h"
#include "home/web_checks.h"

#include <algorithm>
#include <stdlib.h>
#include <time.h>

namespace {

constexpr size_t body_most = 64 * 1024;
constexpr int64_t request_longest_ms = 60000;

// A request whose body is still to come.
struct arriving {
    std::string body;
};

constexpr struct {
    const char *name, *value;
} headers_of_all[] = {
    {"Content-Security-Policy", "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
                                "connect-src 'self'; font-src 'self'; manifest-src 'self'; base-uri 'none'; "
                                "form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
};

MHD_Result send(web_server *server, MHD_Connection *connection, const web_answer &answer)
{
    MHD_Response *response = answer.response;
    if (!response) {
        response =
            MHD_create_response_from_buffer(answer.text.size(), const_cast<char *>(answer.text.data()), MHD_RESPMEM_MUST_COPY);
        if (!response)
            return MHD_NO;
        MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    }
    for (const auto &one : headers_of_all)
        MHD_add_response_header(response, one.name, one.value);
    for (const auto &one : answer.headers)
        MHD_add_response_header(response, one.first, one.second.c_str());
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.type.c_str());
    server->counts[web_count_requests]++;
    if (answer.refused != web_refusal_end)
        server->refusals[answer.refused]++;
    MHD_Result queued = MHD_queue_response(connection, answer.status, response);
    MHD_destroy_response(response);
    return queued;
}

std::string client_address(MHD_Connection *connection)
{
    const MHD_ConnectionInfo *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    return info && info->client_addr ? address_text(info->client_addr) : "";
}

// Whether the client runs on this box and speaks for nobody else.
bool is_from_this_box(const web_request &asked)
{
    sockaddr_storage own = {};
    socklen_t size = sizeof(own);
    const web_connection *record = connection_of(asked.connection);
    bool from_own = record && getsockname(record->fd, reinterpret_cast<sockaddr *>(&own), &size) == 0 &&
                    address_text(reinterpret_cast<sockaddr *>(&own)) == asked.address;
    return (from_own || is_loopback(asked.address)) && header_value(asked, "X-Forwarded-For").empty() &&
           header_value(asked, "Forwarded").empty();
}

bool is_announced_too_large(MHD_Connection *connection)
{
    const char *length = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
    return length && strtoull(length, nullptr, 10) > body_most;
}

} // namespace

web_connection *connection_of(MHD_Connection *connection)
{
    const MHD_ConnectionInfo *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    return info ? static_cast<web_connection *>(info->socket_context) : nullptr;
}

MHD_Result take_request(void *context, MHD_Connection *connection, const char *path, const char *method, const char *,
                        const char *piece, size_t *piece_size, void **request)
{
    web_server *server = static_cast<web_server *>(context);
    arriving *here = static_cast<arriving *>(*request);
    web_answer answer;
    if (!here) {
        if (is_announced_too_large(connection)) {
            refuse(&answer, refused_too_large);
            return send(server, connection, answer);
        }
        *request = new arriving;
        return MHD_YES;
    }
    if (*piece_size > 0) {
        // A body without a length that grows beyond is answered by the connection's end.
        if (here->body.size() + *piece_size > body_most) {
            server->refusals[refused_too_large]++;
            return MHD_NO;
        }
        here->body.append(piece, *piece_size);
        *piece_size = 0;
        return MHD_YES;
    }
    web_request asked;
    asked.home = server->home;
    asked.server = server;
    asked.connection = connection;
    asked.method = std::string(method) == MHD_HTTP_METHOD_HEAD ? MHD_HTTP_METHOD_GET : method;
    asked.path = path;
    asked.text.swap(here->body);
    asked.address = client_address(connection);
    asked.client = client_network(asked.address);
    asked.from_this_box = is_from_this_box(asked);
    asked.time = time(nullptr);
    answer_request(&asked, &answer);
    return send(server, connection, answer);
}

void forget_request(void *, MHD_Connection *connection, void **request, MHD_RequestTerminationCode)
{
    delete static_cast<arriving *>(*request);
    *request = nullptr;
    if (web_connection *record = connection_of(connection)) {
        record->since_ms = uptime_ms();
        record->used = true;
    }
}

void note_connection(void *context, MHD_Connection *connection, void **record, MHD_ConnectionNotificationCode what)
{
    web_server *server = static_cast<web_server *>(context);
    if (what == MHD_CONNECTION_NOTIFY_STARTED) {
        const MHD_ConnectionInfo *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
        server->connections.push_back({info ? info->connect_fd : -1, uptime_ms(), false, false});
        *record = &server->connections.back();
        return;
    }
    if (!static_cast<web_connection *>(*record)->used)
        server->counts[web_count_connections_unused]++;
    server->connections.remove_if([&](const web_connection &one) { return &one == *record; });
    *record = nullptr;
}

void end_stalled_connections(web_server *server, int64_t now_ms)
{
    for (web_connection &one : server->connections) {
        if (one.stream || one.fd < 0 || now_ms - one.since_ms < request_longest_ms)
            continue;
        shutdown(one.fd, SHUT_RDWR);
        one.since_ms = now_ms;
        server->counts[web_count_connections_stalled]++;
    }
}
