#include "platform/linux/replace_file.h"

#include "common/guards.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

namespace {

constexpr mode_t new_mode = 0644;
constexpr int path_room = 300;

bool write_whole(int fd, const char *text)
{
    for (size_t left = strlen(text); left > 0;) {
        ssize_t done = write(fd, text, left);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            return false;
        text += done;
        left -= static_cast<size_t>(done);
    }
    return fsync(fd) == 0;
}

void take_after(int fd, const char *path)
{
    struct stat old = {};
    if (stat(path, &old) != 0)
        return;
    // Without the right to give a file away it stays ours.
    int given = fchown(fd, old.st_uid, old.st_gid);
    static_cast<void>(given);
    fchmod(fd, old.st_mode & 0777);
}

} // namespace

bool replace_file(const char *path, const char *text)
{
    char beside[path_room];
    int length = snprintf(beside, sizeof(beside), "%s.new", path);
    if (length < 0 || length >= path_room)
        return false;
    unlink(beside);
    fd_guard fd(open(beside, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, new_mode));
    if (fd.get() < 0)
        return false;
    take_after(fd.get(), path);
    if (write_whole(fd.get(), text) && rename(beside, path) == 0)
        return true;
    unlink(beside);
    return false;
}
