#include "platform/linux/socket_group.h"

#include "platform/linux/client/settings.h"

#include <atomic>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::atomic<bool> told{false};

bool is_given(int fd, const char *path)
{
    constexpr int itself = AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW;
    if (fchownat(fd, path, static_cast<uid_t>(-1), settings().socket_group, itself) == 0)
        return true;
    int why = errno;
    struct stat about = {};
    bool was_given = fstatat(fd, path, &about, itself) == 0 && about.st_gid == settings().socket_group;
    errno = why;
    return was_given;
}

void give(int fd, const char *path)
{
    if (settings().has_socket_group && !is_given(fd, path) && !told.exchange(true))
        fprintf(stderr,
                "appident: the sockets stay with the daemon's own group, as the one of \"socket_group\" cannot be given: %s; "
                "is the daemon's user a member of it?\n",
                strerror(errno));
}

} // namespace

void give_to_socket_group(int fd)
{
    give(fd, "");
}

void give_to_socket_group(const char *path)
{
    give(AT_FDCWD, path);
}
