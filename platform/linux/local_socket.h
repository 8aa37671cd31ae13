// Unix sockets that only the household's own software may connect to.
#ifndef PLATFORM_LINUX_LOCAL_SOCKET_H
#define PLATFORM_LINUX_LOCAL_SOCKET_H

#include <sys/types.h>

struct local_server {
    int fd; // non-blocking, listening; -1 on failure
    gid_t group;
    int spare; // given up for a moment when there is no other descriptor
};
constexpr local_server no_local_server = {-1, 0, -1};

// Listens at the path with mode 0660, in place of whatever socket or file was left there. type: SOCK_SEQPACKET or SOCK_STREAM.
local_server open_local_server(const char *path, int type);
// The next client, non-blocking, or -1. A client that is not root, our own user or of the socket's group is turned away, and
// *refused tells so. Without a descriptor to spare the client is turned away as well, and counted here: left at the door it
// would wake its server again and again.
int accept_local_peer(local_server *server, bool *refused);

#endif
