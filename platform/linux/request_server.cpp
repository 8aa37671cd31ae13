// The request server: nt_ipcserver_init2 and ipc_server_accept2.
//
// The descriptor given to the daemon is an epoll set of the listening socket, of clients that have connected and not asked yet,
// and of a timer, at which slow clients are let go and the socket is put back at its path if somebody took it away. It is
// readable when one of them needs attention, and nothing here ever waits: a silent client costs a descriptor for a while, never
// time of the loop. Serves on the thread that calls.
#include "igd/igd_lib.h"

#include "common/guards.h"
#include "platform/linux/client/request_protocol.h"
#include "platform/linux/instance.h"
#include "platform/linux/library_requests.h"
#include "platform/linux/local_socket.h"
#include "platform/linux/platform_counters.h"
#include "platform/linux/push_outlet.h"
#include "platform/linux/request_checks.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/times.h>
#include <sys/un.h>

namespace {

constexpr u32 waiting_most = 16;
// Epoll tags beyond those of the waiting clients, which are their places.
enum : u32 { tag_listener = waiting_most, tag_timer };
// The timer's pace: while clients wait, while the socket is missing, and at rest.
constexpr timespec pace_of_clients = {0, 200 * 1000 * 1000};
constexpr timespec pace_of_trouble = {1, 0};
constexpr timespec pace_at_rest = {5, 0};
// A client must ask within this, or is gone at the next look.
constexpr u32 patience_milliseconds = 400;

struct waiting_client {
    int fd;
    u32 since; // kernel_milliseconds
};

char socket_path[sizeof(sockaddr_un::sun_path)];
local_server listener = no_local_server;
bool listener_watched = false;
int events = -1;
int timer = -1;
ipc_handler handler = nullptr;
waiting_client waiting[waiting_most];
u32 waiting_count = 0;
u32 next_crowded = 0;

// A request taken apart; texts are terminated and belong to the packet and the copy.
struct taken_request {
    const request_head *head;
    heap_text device;
    heap_text text;
};

bool watch(int fd, u32 tag)
{
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.u32 = tag;
    return epoll_ctl(events, EPOLL_CTL_ADD, fd, &event) == 0;
}

// Of a clock that a C library clock run faster than life leaves alone: clients live at their own pace. Wraps.
u32 kernel_milliseconds()
{
    return static_cast<u32>(static_cast<unsigned long long>(times(nullptr)) * 1000u / static_cast<u32>(sysconf(_SC_CLK_TCK)));
}

void set_timer()
{
    const timespec &pace = waiting_count > 0 ? pace_of_clients : listener_watched ? pace_at_rest : pace_of_trouble;
    itimerspec times = {pace, pace};
    timerfd_settime(timer, 0, &times, nullptr);
}

// Not while there is no spare descriptor: clients that cannot be let in would wake us for ever.
void watch_listener()
{
    bool wanted = listener.socket.fd >= 0 && has_spare(&listener);
    if (wanted && !listener_watched)
        listener_watched = watch(listener.socket.fd, tag_listener);
    else if (!wanted && listener_watched)
        listener_watched = listener.socket.fd >= 0 && epoll_ctl(events, EPOLL_CTL_DEL, listener.socket.fd, nullptr) != 0;
}

// Clients that came to a socket which is no longer at the path are turned away with it.
void open_listener()
{
    bool was_told = listener.socket.fd < 0 && handler;
    close_local_server(&listener);
    listener_watched = false;
    listener = open_local_server(socket_path, SOCK_SEQPACKET);
    if (listener.socket.fd < 0) {
        count_platform(platform_socket_retries);
        if (!was_told)
            fprintf(stderr, "appident: no request socket at %s: %s; trying again\n", socket_path, strerror(errno));
    }
    watch_listener();
}

void look_after_listener()
{
    if (!socket_in_place(listener.socket, socket_path)) {
        bool was_there = listener.socket.fd >= 0;
        if (was_there)
            count_platform(platform_socket_retries);
        open_listener();
        if (listener.socket.fd >= 0)
            fprintf(stderr, "appident: the request socket %s at %s\n", was_there ? "was taken away and is again" : "is now",
                    socket_path);
    }
    watch_listener();
}

void dismiss(u32 place)
{
    close(waiting[place].fd);
    waiting[place].fd = -1;
    if (--waiting_count == 0)
        set_timer();
}

void let_wait(int fd)
{
    u32 place = 0;
    while (place < waiting_most && waiting[place].fd >= 0)
        ++place;
    if (place == waiting_most) {
        place = next_crowded;
        next_crowded = (next_crowded + 1) % waiting_most;
        count_platform(platform_requests_crowded_out);
        dismiss(place);
    }
    if (!watch(fd, place)) {
        close(fd);
        return;
    }
    waiting[place] = {fd, kernel_milliseconds()};
    if (waiting_count++ == 0)
        set_timer();
}

heap_text copy_text(const char *from, u32 length)
{
    heap_text text(static_cast<char *>(malloc(length + 1)));
    if (!text) {
        count_platform(platform_no_memory);
        return text;
    }
    memcpy(text.get(), from, length);
    text.get()[length] = 0;
    return text;
}

void send_answer(int fd, int result, u32 full_length, const void *text, u32 text_length)
{
    answer_head head = {answer_magic, result, full_length, text_length};
    iovec parts[] = {{&head, sizeof(head)}, {const_cast<void *>(text), text_length}};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = text_length ? 2 : 1;
    if (sendmsg(fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0)
        count_platform(platform_answers_undelivered);
}

void serve_report(int fd, const taken_request &request)
{
    unsigned int length = request.head->capacity;
    // One byte more than promised, so that the text ends even when the handler fills the whole.
    heap_text result_text(static_cast<char *>(calloc(1, length + 1)));
    if (!result_text) {
        count_platform(platform_no_memory);
        return send_answer(fd, -1, 0, nullptr, 0);
    }
    int result = handler(request.head->id, result_text.get(), request.device.get(), &length);
    if (result != 0 || length == 0)
        return send_answer(fd, result, 0, nullptr, 0);
    send_answer(fd, result, length, result_text.get(), static_cast<u32>(strlen(result_text.get())));
}

void serve_store(int fd, const taken_request &request)
{
    unsigned int length = request.head->text_length;
    send_answer(fd, handler(request.head->id, request.text.get(), request.device.get(), &length), 0, nullptr, 0);
}

void serve_switches(int fd, const taken_request &request)
{
    appident_payment_notify_st switches;
    memcpy(&switches, request.text.get(), sizeof(switches));
    // The word itself is the number.
    void *action = reinterpret_cast<void *>(static_cast<uintptr_t>(request.head->action));
    int result = handler(request.head->id, &switches, action, nullptr);
    send_answer(fd, result, sizeof(switches), &switches, sizeof(switches));
}

// A result text that is longer than the client has room for is cut, as those of the daemon are.
void serve_library_request(int fd, const taken_request &request)
{
    heap_text answer;
    // The text may come as either, as those of the daemon do.
    const char *text = request.head->text_length > 0 ? request.text.get() : request.device.get();
    int result = library_request(request.head->id, text, &answer);
    u32 length = result == 0 && answer ? static_cast<u32>(strlen(answer.get())) : 0;
    send_answer(fd, result, length, answer.get(), length < request.head->capacity ? length : request.head->capacity);
}

void serve_packet(int fd, const char *packet)
{
    request_head head;
    memcpy(&head, packet, sizeof(head));
    const char *device = packet + sizeof(head);
    taken_request request = {&head, copy_text(device, head.device_length),
                             copy_text(device + head.device_length, head.text_length)};
    if (!request.device || !request.text)
        return send_answer(fd, -1, 0, nullptr, 0);
    count_platform(platform_requests_served);
    switch (shape_of_request(head.id)) {
    case request_report:
        return serve_report(fd, request);
    case request_store:
        return serve_store(fd, request);
    case request_switches:
        return serve_switches(fd, request);
    case request_library:
        return serve_library_request(fd, request);
    case request_unknown:
        return send_answer(fd, handler(head.id, nullptr, nullptr, nullptr), 0, nullptr, 0);
    }
}

enum turn { turn_served, turn_failed, turn_too_early };

turn serve_client(int fd)
{
    heap_text packet(static_cast<char *>(malloc(request_packet_limit)));
    if (!packet) {
        count_platform(platform_no_memory);
        return turn_failed;
    }
    ssize_t got = recv(fd, packet.get(), request_packet_limit, MSG_DONTWAIT | MSG_TRUNC);
    if (got < 0 && (errno == EAGAIN || errno == EINTR))
        return turn_too_early;
    if (got <= 0) {
        count_platform(platform_requests_vanished);
        return turn_failed;
    }
    if (!request_makes_sense(packet.get(), static_cast<size_t>(got))) {
        count_platform(platform_requests_malformed);
        return turn_failed;
    }
    serve_packet(fd, packet.get());
    return turn_served;
}

int serve_new_client()
{
    bool refused = false;
    fd_guard peer(accept_local_peer(&listener, &refused));
    if (refused)
        count_platform(platform_peers_refused);
    if (listener.spare < 0) {
        watch_listener();
        set_timer();
    }
    if (peer.get() < 0)
        return -1;
    turn outcome = serve_client(peer.get());
    if (outcome == turn_too_early)
        let_wait(peer.release());
    return outcome == turn_served ? 0 : -1;
}

int serve_waiting_client(u32 place)
{
    turn outcome = serve_client(waiting[place].fd);
    if (outcome != turn_too_early)
        dismiss(place);
    return outcome == turn_served ? 0 : -1;
}

void end_patience()
{
    u32 now = kernel_milliseconds();
    for (u32 place = 0; place < waiting_most; ++place) {
        if (waiting[place].fd < 0 || now - waiting[place].since < patience_milliseconds)
            continue;
        count_platform(platform_requests_too_slow);
        dismiss(place);
    }
}

void look_around()
{
    uint64_t looks;
    if (read(timer, &looks, sizeof(looks)) != static_cast<ssize_t>(sizeof(looks)))
        return;
    end_patience();
    look_after_listener();
    set_timer();
}

} // namespace

int nt_ipcserver_init2(const char *path, ipc_handler serve)
{
    // The first call of the daemon. What another instance uses stays untouched; readers find the counters and the push socket
    // from now on.
    answer_command_line();
    if (!take_instance_lock())
        return -1;
    platform_counters_start();
    push_outlet_start();
    for (waiting_client &client : waiting)
        client.fd = -1;
    fd_guard set(epoll_create1(EPOLL_CLOEXEC)), clock(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    events = set.get();
    if (!path || strlen(path) >= sizeof(socket_path) || !serve || events < 0 || clock.get() < 0 ||
        !watch(clock.get(), tag_timer))
        return events = -1;
    snprintf(socket_path, sizeof(socket_path), "%s", path);
    timer = clock.release();
    open_listener();
    handler = serve;
    set_timer();
    return set.release();
}

int ipc_server_accept2(void)
{
    epoll_event event;
    if (events < 0 || epoll_wait(events, &event, 1, 0) != 1)
        return -1;
    if (event.data.u32 == tag_listener)
        return serve_new_client();
    if (event.data.u32 < waiting_most)
        return serve_waiting_client(event.data.u32);
    look_around();
    return -1;
}
