// Unix sockets that only the household's own software may connect to.
#ifndef PLATFORM_LINUX_LOCAL_SOCKET_H
#define PLATFORM_LINUX_LOCAL_SOCKET_H

#include <sys/stat.h>
#include <sys/types.h>

// A socket at its path: `node` is what stands there, as long as nobody took it away.
struct placed_socket {
    int fd; // non-blocking; -1 on failure
    struct stat node;
};

// A socket at the path, mode 0660, of the household's group, in place of whatever was left there; streams and packets are
// listened to. It is made in a directory of its own and moved to the path when it is ready, so that nobody meets it half made
// and nobody can take its place meanwhile. Fails where the path is somebody else's and may not be replaced; errno tells why.
placed_socket place_socket(const char *path, int type);
// Whether the path still leads to the socket.
bool socket_in_place(const placed_socket &socket, const char *path);

struct local_server {
    placed_socket socket;
    int spare; // given up for an instant when there is no other descriptor; -1 when it could not be had again
};
constexpr local_server no_local_server = {{-1, {}}, -1};

// type: SOCK_SEQPACKET or SOCK_STREAM.
local_server open_local_server(const char *path, int type);
void close_local_server(local_server *server);
// The next client, non-blocking, or -1. A client that is not root, our own user or of the socket's group is turned away, and
// *refused tells so. Without a descriptor for it the client is turned away as well, and counted here: waiting for ever it would
// wake its server again and again.
int accept_local_peer(local_server *server, bool *refused);
// Whether there is a spare descriptor, after trying to have one again. While there is none, do not wait for clients.
bool has_spare(local_server *server);

#endif
