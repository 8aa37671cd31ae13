// The request server: nt_ipcserver_init2 and ipc_server_accept2.
//
// The descriptor given to the daemon is an epoll set of the listening socket, of clients that have connected and not asked yet,
// and of a timer that ends their patience. It is readable when one of them needs attention, and nothing here ever waits: a
// silent client costs a descriptor for a while, never time of the loop. Serves on the thread that calls.
#include "igd/igd_lib.h"

#include "common/guards.h"
#include "platform/linux/client/request_protocol.h"
#include "platform/linux/library_requests.h"
#include "platform/linux/local_socket.h"
#include "platform/linux/platform_counters.h"
#include "platform/linux/push_outlet.h"

#include <errno.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <sys/times.h>

namespace {

constexpr u32 waiting_most = 16;
// Epoll tags beyond those of the waiting clients, which are their places.
enum : u32 { tag_listener = waiting_most, tag_timer };
constexpr long look_nanoseconds = 200 * 1000 * 1000;
// A client must ask within this, or is gone at the next look.
constexpr u32 patience_milliseconds = 400;

struct waiting_client {
    int fd;
    u32 since; // kernel_milliseconds
};

local_server listener = no_local_server;
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

void set_timer(bool running)
{
    itimerspec pace = {};
    if (running)
        pace.it_value.tv_nsec = pace.it_interval.tv_nsec = look_nanoseconds;
    timerfd_settime(timer, 0, &pace, nullptr);
}

void dismiss(u32 place)
{
    close(waiting[place].fd);
    waiting[place].fd = -1;
    if (--waiting_count == 0)
        set_timer(false);
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
        set_timer(true);
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
    int result = library_request(request.head->id, request.text.get(), &answer);
    u32 length = result == 0 && answer ? static_cast<u32>(strlen(answer.get())) : 0;
    send_answer(fd, result, length, answer.get(), length < request.head->capacity ? length : request.head->capacity);
}

bool makes_sense(const char *packet, size_t size)
{
    request_head head;
    if (size < sizeof(head) || size > request_packet_limit)
        return false;
    memcpy(&head, packet, sizeof(head));
    size_t left = size - sizeof(head);
    if (head.magic != request_magic || head.capacity > request_text_limit || head.device_length > left ||
        head.text_length != left - head.device_length)
        return false;
    if (shape_of_request(head.id) == request_switches)
        return head.device_length == 0 && head.text_length == sizeof(appident_payment_notify_st);
    return !memchr(packet + sizeof(head), 0, left);
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
    if (!makes_sense(packet.get(), static_cast<size_t>(got))) {
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
    uint64_t looks;
    if (read(timer, &looks, sizeof(looks)) != static_cast<ssize_t>(sizeof(looks)))
        return;
    u32 now = kernel_milliseconds();
    for (u32 place = 0; place < waiting_most; ++place) {
        if (waiting[place].fd < 0 || now - waiting[place].since < patience_milliseconds)
            continue;
        count_platform(platform_requests_too_slow);
        dismiss(place);
    }
}

} // namespace

int nt_ipcserver_init2(const char *path, ipc_handler serve)
{
    // The first call of the daemon: readers find the counters and the push socket from now on.
    platform_counters_start();
    push_outlet_start();
    for (waiting_client &client : waiting)
        client.fd = -1;
    fd_guard set(epoll_create1(EPOLL_CLOEXEC)), clock(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    listener = open_local_server(path, SOCK_SEQPACKET);
    fd_guard listening(listener.fd);
    events = set.get();
    if (!serve || events < 0 || clock.get() < 0 || listener.fd < 0 || !watch(listener.fd, tag_listener) ||
        !watch(clock.get(), tag_timer))
        return events = -1;
    handler = serve;
    timer = clock.release();
    listening.release();
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
    end_patience();
    return -1;
}
