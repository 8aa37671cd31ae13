#include "platform/linux/push_spool.h"

#include "platform/linux/client/settings.h"
#include "platform/linux/directories.h"
#include "platform/linux/platform_counters.h"
#include "platform/linux/socket_group.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int spool = -1;

bool open_spool(const char *path)
{
    spool = open(path, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0640);
    if (spool < 0 && make_directory(settings().runtime_dir, 0755))
        spool = open(path, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0640);
    if (spool < 0)
        return false;
    give_to_socket_group(spool); // readable by those who may subscribe
    return true;
}

void close_spool()
{
    close(spool);
    spool = -1;
}

void rotate(const char *path)
{
    char old_path[state_path_size];
    runtime_path(old_path, "pushes.jsonl.1");
    close_spool();
    // A file that cannot be moved away is given up, rather than growing for ever.
    if (rename(path, old_path) != 0)
        unlink(path);
}

// Ready for a line of this length: open, still the file at the path, and with room. Fills its size.
bool ready_spool(size_t length, struct stat *about)
{
    char path[state_path_size];
    runtime_path(path, "pushes.jsonl");
    if (spool >= 0 && (fstat(spool, about) != 0 || about->st_nlink == 0))
        close_spool();
    if (spool < 0 && (!open_spool(path) || fstat(spool, about) != 0))
        return false;
    if (about->st_size == 0 || static_cast<u64>(about->st_size) + length <= settings().spool_limit)
        return true;
    rotate(path);
    return open_spool(path) && fstat(spool, about) == 0;
}

} // namespace

void spool_line(const char *line, size_t length)
{
    struct stat about;
    bool written = false;
    if (ready_spool(length, &about)) {
        written = write(spool, line, length) == static_cast<ssize_t>(length);
        // Half a line would spoil the next one too.
        if (!written && ftruncate(spool, about.st_size) != 0)
            close_spool();
    }
    if (!written)
        count_platform(platform_spool_failed);
}
