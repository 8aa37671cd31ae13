#include "appident/router/traffic_socket.h"

#include "common/accounting_message.h"
#include "igd/igd_lib.h"

#include <errno.h>
#include <linux/filter.h>
#include <linux/netlink.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

namespace {

// Connection tracking's groups: DNS, HTTP, updates, new connections. Accounting messages come on them.
constexpr int traffic_groups[] = {7, 8, 2, 1};
constexpr int receive_buffer_bytes = 4 * 1024 * 1024;

// libnl's own buffer holds 78 messages, and groups are joined 21 seconds before the loop reads. Without the right to force it
// the system's limit applies.
void enlarge_receive_buffer(int fd)
{
    int size = receive_buffer_bytes;
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0)
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    // A full buffer is counted, not reported as an error of the next read.
    int on = 1;
    setsockopt(fd, SOL_NETLINK, NETLINK_NO_ENOBUFS, &on, sizeof(on));
}

// The kernel drops what is no accounting message before it wakes anybody: connection tracking tells of every new connection on
// the same groups. It judges by the low byte of a datagram's first header, as the loop does: of a datagram with several
// messages only the first is looked at, so that nothing is lost which the loop would have taken. What is shorter than that byte
// is dropped. libnl cannot connect a socket that has one already. Without it the loop passes over the
// others itself.
void attach_filter(int fd)
{
    constexpr u32 low_type_byte = offsetof(nlmsghdr, nlmsg_type) + (__BYTE_ORDER__ == __ORDER_BIG_ENDIAN__ ? 1 : 0);
    constexpr u32 whole = UINT32_MAX;
    sock_filter accounting_only[] = {
        {BPF_LD | BPF_B | BPF_ABS, 0, 0, low_type_byte},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, IPCTNL_MSG_CT_DPI_ACCT},
        {BPF_RET | BPF_K, 0, 0, whole},
        {BPF_RET | BPF_K, 0, 0, 0},
    };
    const sock_fprog program = {sizeof(accounting_only) / sizeof(accounting_only[0]), accounting_only};
    // The log is not open yet.
    if (setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program)) != 0)
        fprintf(stderr, "appident: no filter on the traffic socket: %s; other messages of the kernel cost more\n",
                strerror(errno));
}

} // namespace

int open_traffic_socket(void)
{
    nl_sock *socket = nltool_alloc_handle();
    if (!socket || nl_connect(socket, NETLINK_NETFILTER) < 0)
        return -1;
    for (int group : traffic_groups) {
        if (nl_socket_add_membership(socket, group) < 0)
            return -1;
    }
    int fd = nl_socket_get_fd(socket);
    enlarge_receive_buffer(fd);
    attach_filter(fd);
    return fd;
}
