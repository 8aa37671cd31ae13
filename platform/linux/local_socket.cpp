#include "platform/linux/local_socket.h"

#include "common/guards.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/platform_counters.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace {

constexpr int waiting_clients = 16;
constexpr socklen_t most_peer_groups = 256;
constexpr mode_t owner_and_group = 0660;

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

int open_spare()
{
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

void turn_away(local_server *server)
{
    count_platform(platform_no_descriptor);
    close(server->spare);
    close(accept4(server->fd, nullptr, nullptr, SOCK_CLOEXEC));
    server->spare = open_spare();
}

} // namespace

local_server open_local_server(const char *path, int type)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (!path || strlen(path) >= sizeof(address.sun_path))
        return no_local_server;
    memcpy(address.sun_path, path, strlen(path) + 1);
    fd_guard fd(socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (fd.get() < 0)
        return no_local_server;
    unlink(path);
    // The socket appears with the descriptor's mode, and nobody can connect before it listens.
    fchmod(fd.get(), S_IRUSR | S_IWUSR);
    if (bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0)
        return no_local_server;
    // A group that cannot be given leaves the socket to our own, which the look at it afterwards finds.
    int given = settings().has_socket_group ? lchown(path, static_cast<uid_t>(-1), settings().socket_group) : 0;
    static_cast<void>(given);
    struct stat about;
    if (lstat(path, &about) != 0 || chmod(path, owner_and_group) != 0 || listen(fd.get(), waiting_clients) != 0)
        return no_local_server;
    return {fd.release(), about.st_gid, open_spare()};
}

int accept_local_peer(local_server *server, bool *refused)
{
    *refused = false;
    fd_guard peer(accept4(server->fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (peer.get() < 0 && (errno == EMFILE || errno == ENFILE))
        turn_away(server);
    if (peer.get() >= 0 && !peer_allowed(peer.get(), server->group)) {
        *refused = true;
        return -1;
    }
    return peer.release();
}
