// reserve-names: gives names in a directory that everybody may write to, such as /tmp, to the user a service runs as.
//
// usage: reserve-names USER PATH...
//
// Run as root before the service starts. In a sticky directory a name belongs to whoever took it first, and the service could
// neither use it nor take it away. A file or socket of USER stays as it is; anything else is replaced by an empty file of USER
// in one step, so that the name is free at no moment. A directory found there is kept beside it as PATH.found-XXXXXX.
#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr size_t path_size = 256;
constexpr int most_tries = 100000; // somebody may make and remove directories at the name all the time

bool belongs_to(const char *path, uid_t user)
{
    struct stat about;
    if (lstat(path, &about) != 0 || about.st_uid != user)
        return false;
    return S_ISSOCK(about.st_mode) || (S_ISREG(about.st_mode) && about.st_nlink == 1);
}

bool make_empty_file(const char *path, const passwd &user)
{
    int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    bool given = fchown(fd, user.pw_uid, user.pw_gid) == 0;
    close(fd);
    return given;
}

// Not every C library has a function for this.
bool exchange(const char *one, const char *other)
{
    return syscall(SYS_renameat2, AT_FDCWD, one, AT_FDCWD, other, RENAME_EXCHANGE) == 0;
}

// Puts `file` at `path`. What was there is gone, or, where it was a directory, lies at `file` now.
bool put_at(const char *file, const char *path, bool *swapped)
{
    for (int i = 0; i < most_tries; i++) {
        *swapped = false;
        if (rename(file, path) == 0)
            return true;
        if (errno != EISDIR)
            return false;
        *swapped = exchange(file, path);
        if (*swapped)
            return true;
        if (errno != ENOENT)
            return false;
    }
    return false;
}

bool keep_beside(const char *found, const char *path)
{
    struct stat about;
    if (lstat(found, &about) != 0 || !S_ISDIR(about.st_mode))
        return unlink(found) == 0;
    char beside[path_size + 16];
    snprintf(beside, sizeof(beside), "%s.found-XXXXXX", path);
    return mkdtemp(beside) && rename(found, beside) == 0;
}

bool reserve(const char *path, const passwd &user)
{
    if (belongs_to(path, user.pw_uid))
        return true;
    char place[path_size + 16], file[path_size + 32];
    if (strlen(path) >= path_size) {
        errno = ENAMETOOLONG;
        return false;
    }
    // Beside the name, as a file can only be renamed within a file system; and closed to all others.
    snprintf(place, sizeof(place), "%s.new-XXXXXX", path);
    if (!mkdtemp(place))
        return false;
    snprintf(file, sizeof(file), "%s/file", place);
    bool swapped = false;
    bool reserved = make_empty_file(file, user) && put_at(file, path, &swapped) && (!swapped || keep_beside(file, path));
    int reason = errno;
    unlink(file);
    rmdir(place);
    errno = reason;
    return reserved;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        fputs("usage: reserve-names USER PATH...\n", stderr);
        return 2;
    }
    const passwd *user = getpwnam(argv[1]);
    if (!user) {
        fprintf(stderr, "reserve-names: there is no user %s\n", argv[1]);
        return 1;
    }
    int status = 0;
    for (int i = 2; i < argc; i++)
        if (!reserve(argv[i], *user)) {
            fprintf(stderr, "reserve-names: %s: %s\n", argv[i], strerror(errno));
            status = 1;
        }
    return status;
}
