#include "feed/netlink_socket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netlink.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace {

// Greater than any datagram that is asked for.
constexpr size_t buffer_bytes = 128 * 1024;

} // namespace

nl_msg_ptr netfilter_request(int type, int flags, uint8_t family, uint16_t res_id)
{
    nl_msg_ptr message(nlmsg_alloc());
    nfgenmsg header{family, NFNETLINK_V0, htons(res_id)};
    if (!message || !nlmsg_put(message.get(), NL_AUTO_PORT, NL_AUTO_SEQ, type, 0, flags) ||
        nlmsg_append(message.get(), &header, sizeof(header), NLMSG_ALIGNTO) != 0)
        message.reset();
    return message;
}

bool netlink_socket::open(int protocol, int receive_seconds)
{
    socket.reset(nl_socket_alloc());
    errno = 0;
    if (!socket || nl_connect(socket.get(), protocol) < 0) {
        errno = errno ? errno : ENOMEM;
        return false;
    }
    buffer.resize(buffer_bytes);
    timeval longest{receive_seconds, 0};
    setsockopt(descriptor(), SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof(longest));
    // What is lost is told by sequence numbers, not by the next read.
    int on = 1;
    setsockopt(descriptor(), SOL_NETLINK, NETLINK_NO_ENOBUFS, &on, sizeof(on));
    return receive_seconds > 0 || nl_socket_set_nonblocking(socket.get()) == 0;
}

void netlink_socket::enlarge_buffer(int bytes)
{
    if (setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes)) != 0)
        setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
}

int netlink_socket::descriptor() const
{
    return nl_socket_get_fd(socket.get());
}

int netlink_socket::ask(nl_msg_ptr request)
{
    return request ? nl_send_sync(socket.get(), request.release()) : -NLE_NOMEM;
}

bool netlink_socket::tell(nl_msg *request, uint32_t *sequence)
{
    if (!request)
        return false;
    nl_complete_msg(socket.get(), request);
    nlmsg_hdr(request)->nlmsg_flags &= static_cast<uint16_t>(~NLM_F_ACK);
    *sequence = nlmsg_hdr(request)->nlmsg_seq;
    return nl_send(socket.get(), request) >= 0;
}

bool netlink_socket::receive()
{
    for (;;) {
        sockaddr_nl from{};
        socklen_t from_size = sizeof(from);
        ssize_t got = recvfrom(descriptor(), buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr *>(&from), &from_size);
        size = got > 0 ? static_cast<int>(got) : 0;
        if (got <= 0)
            return false;
        if (from.nl_pid == 0) // the kernel's own
            return true;
    }
}

const nlmsghdr *netlink_socket::next_message(const nlmsghdr *at) const
{
    return next_netlink_message(buffer.data(), size, at);
}

const nlmsghdr *next_netlink_message(const char *data, int size, const nlmsghdr *at)
{
    const char *next = data;
    if (at)
        next = reinterpret_cast<const char *>(at) + NLMSG_ALIGN(at->nlmsg_len);
    if (next - data >= size)
        return nullptr;
    auto *message = reinterpret_cast<const nlmsghdr *>(next);
    return nlmsg_ok(message, static_cast<int>(size - (next - data))) ? message : nullptr;
}
