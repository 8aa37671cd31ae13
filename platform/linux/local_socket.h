// Unix sockets that only the household's own software may connect to.
#ifndef PLATFORM_LINUX_LOCAL_SOCKET_H
#define PLATFORM_LINUX_LOCAL_SOCKET_H

#include <sys/types.h>

struct local_server {
    int fd; // non-blocking, listening; -1 on failure
    gid_t group;
};

// Listens at the path with mode 0660, in place of whatever socket or file was left there. type: SOCK_SEQPACKET or SOCK_STREAM.
local_server open_local_server(const char *path, int type);
// The next client, non-blocking, or -1. A client that is not root, our own user or of the socket's group is turned away, and
// *refused tells so.
int accept_local_peer(const local_server &server, bool *refused);

#endif
