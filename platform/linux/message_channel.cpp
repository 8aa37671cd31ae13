#include "platform/linux/message_channel.h"

#include "common/guards.h"
#include "igd/igd_lib.h"
#include "platform/linux/platform_counters.h"

#include <atomic>
#include <errno.h>
#include <netlink/socket.h>
#include <string.h>
#include <sys/socket.h>

namespace {

constexpr int receive_buffer = 512 * 1024;

std::atomic<u32> port{0};

bool sender_allowed(msghdr *message)
{
    for (cmsghdr *part = CMSG_FIRSTHDR(message); part; part = CMSG_NXTHDR(message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_CREDENTIALS)
            continue;
        ucred sender;
        memcpy(&sender, CMSG_DATA(part), sizeof(sender));
        return sender.uid == 0 || sender.uid == geteuid();
    }
    return false;
}

} // namespace

// The three numbers select the family and groups of a firmware's kernel; here the group is fixed.
int __nlk_msg_init(struct igd_netlink_handler *h, int, int, int)
{
    memset(h, 0, sizeof(*h));
    h->sock_fd = -1;
    fd_guard fd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK));
    if (fd.get() < 0)
        return -1;
    int on = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on));
    if (setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUFFORCE, &receive_buffer, sizeof(receive_buffer)) != 0)
        setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof(receive_buffer));
    h->src_addr.nl_family = AF_NETLINK;
    h->src_addr.nl_groups = message_channel_mask;
    h->dst_addr = h->src_addr;
    if (bind(fd.get(), reinterpret_cast<sockaddr *>(&h->src_addr), sizeof(h->src_addr)) != 0)
        return -1;
    socklen_t size = sizeof(h->src_addr);
    getsockname(fd.get(), reinterpret_cast<sockaddr *>(&h->src_addr), &size);
    port = h->src_addr.nl_pid;
    h->sock_fd = fd.release();
    return 0;
}

u32 message_channel_port()
{
    return port;
}

// Never waits: nothing queued is a failure like any other.
int nlk_msg_recv(struct igd_netlink_handler *h, void *buf, int len)
{
    if (len < 0)
        return -1;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    iovec room = {buf, static_cast<size_t>(len)};
    msghdr message = {};
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    ssize_t got = recvmsg(h->sock_fd, &message, MSG_DONTWAIT);
    if (got < 0) {
        if (errno == ENOBUFS)
            count_platform(platform_router_overruns);
        return -1;
    }
    if (!sender_allowed(&message)) {
        count_platform(platform_router_foreign);
        return -1;
    }
    if (message.msg_flags & MSG_TRUNC) {
        count_platform(platform_router_truncated);
        return -1;
    }
    return static_cast<int>(got);
}

struct nl_sock *nltool_alloc_handle(void)
{
    nl_sock *sock = nl_socket_alloc();
    if (!sock)
        return nullptr;
    // Multicast messages answer no request: they bring no sequence to check and want no acknowledgement.
    nl_socket_disable_seq_check(sock);
    nl_socket_disable_auto_ack(sock);
    return sock;
}
