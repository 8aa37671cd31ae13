#include "appident/router/traffic_socket.h"

#include "igd/igd_lib.h"

#include <linux/netlink.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
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
    return fd;
}
