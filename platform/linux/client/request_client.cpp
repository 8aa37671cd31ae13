#include "platform/linux/client/request_client.h"

#include "platform/linux/client/request_protocol.h"
#include "platform/linux/client/settings.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

namespace {

struct packet_parts {
    request_head head;
    const char *device;
    const void *text;
};

bool build(const client_request &request, packet_parts *parts)
{
    request_shape shape = shape_of_request(request.id);
    *parts = {{request_magic, request.id, request.action, 0, 0, 0}, request.device, request.text};
    if (shape == request_switches) {
        parts->device = nullptr;
        parts->text = request.switches;
        parts->head.text_length = request.switches ? sizeof(*request.switches) : 0;
        return request.switches;
    }
    size_t device_length = request.device ? strlen(request.device) : 0;
    size_t text_length = request.text ? strlen(request.text) : 0;
    if (device_length > request_text_limit || text_length > request_text_limit - device_length)
        return false;
    parts->head.device_length = static_cast<u32>(device_length);
    parts->head.text_length = static_cast<u32>(text_length);
    parts->head.capacity = request_text_limit;
    if (shape == request_store)
        return device_length > 0 && text_length > 0;
    return shape != request_report || device_length > 0;
}

request_outcome connect_in_time(int fd, const char *path, int timeout_ms)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof(address.sun_path))
        return request_unreachable;
    memcpy(address.sun_path, path, strlen(path) + 1);
    timeval limit = {timeout_ms / 1000, static_cast<suseconds_t>(timeout_ms % 1000 * 1000)};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0)
        return request_done;
    return errno == EAGAIN || errno == EINPROGRESS ? request_timed_out : request_unreachable;
}

// Anybody may have taken the path before the daemon did. The runtime directory can only be made by root, or by the daemon.
bool server_is_the_daemon(int fd)
{
    ucred server;
    socklen_t size = sizeof(server);
    struct stat runtime;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &server, &size) != 0)
        return false;
    return server.uid == 0 || (stat(settings().runtime_dir, &runtime) == 0 && server.uid == runtime.st_uid);
}

// A server that turns us away closes: the send or the receive then fails, or the answer is empty.
request_outcome outcome_of(ssize_t moved)
{
    if (moved > 0)
        return request_done;
    if (moved < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return request_timed_out;
    return moved < 0 && errno == EMSGSIZE ? request_malformed : request_refused;
}

request_outcome send_request(int fd, const packet_parts &parts)
{
    request_head head = parts.head;
    iovec pieces[] = {{&head, sizeof(head)},
                      {const_cast<char *>(parts.device), head.device_length},
                      {const_cast<void *>(parts.text), head.text_length}};
    msghdr message = {};
    message.msg_iov = pieces;
    message.msg_iovlen = 3;
    return outcome_of(sendmsg(fd, &message, MSG_NOSIGNAL));
}

request_outcome take_answer(const client_request &request, const char *packet, size_t size, client_answer *answer)
{
    answer_head head;
    if (size < sizeof(head))
        return request_malformed;
    memcpy(&head, packet, sizeof(head));
    if (head.magic != answer_magic || head.text_length != size - sizeof(head))
        return request_malformed;
    if (head.result != 0)
        return request_refused;
    const char *text = packet + sizeof(head);
    if (shape_of_request(request.id) == request_switches) {
        if (head.text_length != sizeof(*request.switches))
            return request_malformed;
        memcpy(request.switches, text, sizeof(*request.switches));
    } else if (answer && head.full_length > 0) {
        answer->text.reset(strndup(text, head.text_length));
        answer->full_length = head.full_length;
    }
    return request_done;
}

} // namespace

request_outcome call_daemon(const char *socket_path, int timeout_ms, const client_request &request, client_answer *answer)
{
    if (answer)
        *answer = {};
    packet_parts parts;
    if (!build(request, &parts))
        return request_malformed;
    fd_guard fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    heap_text packet(static_cast<char *>(malloc(answer_packet_limit)));
    if (fd.get() < 0 || !packet)
        return request_unreachable;
    request_outcome outcome = connect_in_time(fd.get(), socket_path, timeout_ms);
    if (outcome == request_done && !server_is_the_daemon(fd.get()))
        outcome = request_server_foreign;
    if (outcome == request_done)
        outcome = send_request(fd.get(), parts);
    if (outcome != request_done)
        return outcome;
    ssize_t got = recv(fd.get(), packet.get(), answer_packet_limit, 0);
    outcome = outcome_of(got);
    return outcome == request_done ? take_answer(request, packet.get(), static_cast<size_t>(got), answer) : outcome;
}
