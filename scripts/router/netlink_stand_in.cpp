// Preloaded under an emulator that has no netfilter netlink: a datagram socket takes the place of the daemon's traffic socket.
#include <stdio.h>
#include <sys/socket.h>
#include <sys/un.h>

struct nl_sock;

extern "C" {

int nl_connect(struct nl_sock *, int)
{
    return 0;
}

int nl_socket_add_membership(struct nl_sock *, int)
{
    return 0;
}

int nl_socket_get_fd(const struct nl_sock *)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "/tmp/firmware.traffic");
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    return bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0 ? fd : -1;
}
}
