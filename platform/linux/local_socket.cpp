#include "platform/linux/local_socket.h"

#include "common/guards.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/platform_counters.h"
#include "platform/linux/socket_group.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

constexpr int waiting_clients = 16;
constexpr socklen_t most_peer_groups = 256;
constexpr mode_t owner_and_group = 0660;
constexpr int tries_to_move_aside = 8;

// A directory beside the path into which nobody else can look; removed with what is left in it.
struct private_directory {
    explicit private_directory(const char *path)
    {
        const char *slash = strrchr(path, '/');
        int parent = slash ? static_cast<int>(slash - path) + 1 : 0;
        int length = snprintf(name, sizeof(name), "%.*s.socket.XXXXXX", parent, path);
        made = length > 0 && static_cast<size_t>(length) < sizeof(name) && mkdtemp(name);
        inside.sun_family = AF_UNIX;
        if (made)
            snprintf(inside.sun_path, sizeof(inside.sun_path), "%s/s", name);
    }
    ~private_directory()
    {
        int why = errno; // the caller tells why it failed, not we
        if (made) {
            unlink(inside.sun_path);
            rmdir(name);
        }
        errno = why;
    }
    private_directory(const private_directory &) = delete;
    private_directory &operator=(const private_directory &) = delete;

    bool made = false;
    char name[sizeof(sockaddr_un::sun_path) - 2] = ""; // leaves room for the name inside
    sockaddr_un inside = {};
};

// A directory cannot be replaced by a socket. Only its owner, or root, can move it out of a directory that all may write to.
bool move_directory_aside(const char *path)
{
    char aside[state_path_size];
    int length = snprintf(aside, sizeof(aside), "%s.XXXXXX", path);
    return length > 0 && static_cast<size_t>(length) < sizeof(aside) && mkdtemp(aside) && rename(path, aside) == 0;
}

bool move_to(const char *from, const char *path)
{
    for (int tries = 0; tries < tries_to_move_aside; ++tries) {
        if (rename(from, path) == 0)
            return true;
        if ((errno != EISDIR && errno != ENOTEMPTY && errno != EEXIST) || !move_directory_aside(path))
            return false;
    }
    return false;
}

bool peer_in_group(int fd, gid_t primary, gid_t wanted)
{
    if (primary == wanted)
        return true;
    gid_t groups[most_peer_groups];
    socklen_t size = sizeof(groups);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups, &size) != 0)
        return false;
    for (socklen_t i = 0; i < size / sizeof(gid_t); ++i)
        if (groups[i] == wanted)
            return true;
    return false;
}

bool peer_allowed(int fd, gid_t group)
{
    ucred peer;
    socklen_t size = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return false;
    return peer.uid == 0 || peer.uid == geteuid() || peer_in_group(fd, peer.gid, group);
}

void turn_away(local_server *server)
{
    count_platform(platform_no_descriptor);
    if (!has_spare(server))
        return;
    close(server->spare);
    int unwanted = accept4(server->socket.fd, nullptr, nullptr, SOCK_CLOEXEC);
    if (unwanted >= 0)
        close(unwanted);
    server->spare = -1;
    has_spare(server);
}

} // namespace

placed_socket place_socket(const char *path, int type)
{
    placed_socket none = {-1, {}}, placed = none;
    fd_guard fd(socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    private_directory beside(path);
    const char *inside = beside.inside.sun_path;
    if (fd.get() < 0 || !beside.made ||
        bind(fd.get(), reinterpret_cast<const sockaddr *>(&beside.inside), sizeof(beside.inside)) != 0)
        return none;
    give_to_socket_group(inside);
    if (chmod(inside, owner_and_group) != 0 || lstat(inside, &placed.node) != 0 ||
        (type != SOCK_DGRAM && listen(fd.get(), waiting_clients) != 0) || !move_to(inside, path))
        return none;
    placed.fd = fd.release();
    return placed;
}

bool socket_in_place(const placed_socket &socket, const char *path)
{
    struct stat found;
    return socket.fd >= 0 && lstat(path, &found) == 0 && found.st_dev == socket.node.st_dev &&
           found.st_ino == socket.node.st_ino;
}

local_server open_local_server(const char *path, int type)
{
    local_server server = {place_socket(path, type), -1};
    if (server.socket.fd >= 0)
        has_spare(&server);
    return server;
}

void close_local_server(local_server *server)
{
    fd_guard socket(server->socket.fd), spare(server->spare);
    *server = no_local_server;
}

bool has_spare(local_server *server)
{
    if (server->spare < 0)
        server->spare = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return server->spare >= 0;
}

int accept_local_peer(local_server *server, bool *refused)
{
    *refused = false;
    fd_guard peer(accept4(server->socket.fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (peer.get() < 0 && (errno == EMFILE || errno == ENFILE))
        turn_away(server);
    if (peer.get() >= 0 && !peer_allowed(peer.get(), server->socket.node.st_gid)) {
        *refused = true;
        return -1;
    }
    return peer.release();
}
