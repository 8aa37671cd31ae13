#include "platform/linux/message_channel.h"

#include "common/guards.h"
#include "igd/igd_lib.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/directories.h"
#include "platform/linux/instance.h"
#include "platform/linux/local_socket.h"
#include "platform/linux/platform_counters.h"
#include "platform/linux/worker.h"

#include <errno.h>
#include <netlink/socket.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

namespace {

constexpr size_t message_most = 8192; // what the daemon has room for
constexpr u32 queue_most = 1024;
constexpr size_t queue_bytes_most = 512 * 1024;
constexpr unsigned retry_seconds = 5;

struct queued_message {
    queued_message *next;
    size_t length;
    unsigned char bytes[];
};

pthread_mutex_t queue_lock = PTHREAD_MUTEX_INITIALIZER;
queued_message *first = nullptr;
queued_message **end = &first;
u32 queued = 0;
size_t queued_bytes = 0;
int ready_fd = -1;   // readable while the queue holds a message
int message_fd = -1; // the worker's, once it runs

heap_ptr<queued_message> dequeue()
{
    mutex_guard held(queue_lock);
    heap_ptr<queued_message> message(first);
    if (!message)
        return message;
    first = message->next;
    queued_bytes -= message->length;
    if (--queued == 0) {
        end = &first;
        eventfd_t taken;
        eventfd_read(ready_fd, &taken);
    }
    return message;
}

bool enqueue(heap_ptr<queued_message> message)
{
    mutex_guard held(queue_lock);
    if (ready_fd < 0 || queued == queue_most || queued_bytes + message->length > queue_bytes_most)
        return false;
    if (queued++ == 0)
        eventfd_write(ready_fd, 1);
    queued_bytes += message->length;
    *end = message.get();
    end = &message.release()->next;
    return true;
}

void take_messages(int fd, unsigned char *buffer)
{
    for (;;) {
        ssize_t got = recv(fd, buffer, message_most, MSG_TRUNC);
        if (got < 0 && errno != EINTR)
            return;
        if (got > static_cast<ssize_t>(message_most))
            count_platform(platform_router_truncated);
        else if (got > 0 && !queue_router_message(buffer, static_cast<size_t>(got)))
            count_platform(platform_router_overruns);
    }
}

int open_message_socket()
{
    char path[state_path_size];
    runtime_path(path, message_socket_name);
    make_directory(settings().runtime_dir, 0755);
    return place_socket(path, SOCK_DGRAM).fd;
}

void *drain_socket(void *)
{
    heap_ptr<unsigned char> buffer(static_cast<unsigned char *>(malloc(message_most)));
    if (!buffer) {
        count_platform(platform_no_memory);
        return nullptr;
    }
    // The path may become free later.
    while (message_fd < 0) {
        sleep(retry_seconds);
        message_fd = open_message_socket();
    }
    for (pollfd readable = {message_fd, POLLIN, 0};;) {
        if (poll(&readable, 1, -1) == 1)
            take_messages(readable.fd, buffer.get());
    }
}

} // namespace

bool router_channel_is_open()
{
    mutex_guard held(queue_lock);
    return ready_fd >= 0;
}

bool queue_router_message(const void *bytes, size_t length)
{
    heap_ptr<queued_message> message(static_cast<queued_message *>(malloc(sizeof(queued_message) + length)));
    if (message) {
        *message = {nullptr, length};
        memcpy(message->bytes, bytes, length);
    }
    return message && enqueue(std::move(message));
}

namespace {

bool start_channel()
{
    {
        mutex_guard held(queue_lock);
        ready_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    }
    message_fd = open_message_socket();
    if (message_fd < 0)
        fprintf(stderr, "appident: no socket for router messages in %s: %s; trying again\n", settings().runtime_dir,
                strerror(errno));
    return ready_fd >= 0 && start_worker(drain_socket);
}

} // namespace

// The three numbers select the family and groups of a firmware's kernel; here there is one channel.
int __nlk_msg_init(struct igd_netlink_handler *h, int, int, int)
{
    memset(h, 0, sizeof(*h));
    h->sock_fd = -1;
    if (instance_refused())
        return -1;
    if (ready_fd < 0 && !start_channel())
        return -1;
    h->sock_fd = ready_fd;
    return 0;
}

// Never waits: nothing queued is a failure like any other.
int nlk_msg_recv(struct igd_netlink_handler *, void *buf, int len)
{
    heap_ptr<queued_message> message = dequeue();
    if (!message)
        return -1;
    if (len < 0 || message->length > static_cast<size_t>(len)) {
        count_platform(platform_router_truncated);
        return -1;
    }
    memcpy(buf, message->bytes, message->length);
    return static_cast<int>(message->length);
}

struct nl_sock *nltool_alloc_handle(void)
{
    if (instance_refused())
        return nullptr;
    nl_sock *sock = nl_socket_alloc();
    if (!sock)
        return nullptr;
    // Multicast messages answer no request: they bring no sequence to check and want no acknowledgement.
    nl_socket_disable_seq_check(sock);
    nl_socket_disable_auto_ack(sock);
    return sock;
}
