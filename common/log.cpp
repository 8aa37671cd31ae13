#include "common/log.h"

#include "common/guards.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

int default_level = 1;
const char *log_file = "/tmp/appident.log";
int log_fd = -1;
unsigned long log_file_size = 0;

namespace {

constexpr unsigned long size_limit = 2097152;
constexpr size_t line_limit = 4096; // characters before the line feed

// The size and the descriptor are shared by threads that log at the same time.
unsigned long known_size()
{
    return __atomic_load_n(&log_file_size, __ATOMIC_RELAXED);
}
void set_known_size(unsigned long size)
{
    __atomic_store_n(&log_file_size, size, __ATOMIC_RELAXED);
}
int open_descriptor()
{
    return __atomic_load_n(&log_fd, __ATOMIC_ACQUIRE);
}

// Where files and directories are writable to all, anything may have been put at the path.
enum found_at_path { found_ours, found_foreign, found_nothing };

found_at_path judge(const struct stat &about)
{
    // A device was named by whoever chose the path.
    if (S_ISCHR(about.st_mode) || S_ISBLK(about.st_mode))
        return found_ours;
    return S_ISREG(about.st_mode) && about.st_uid == geteuid() && about.st_nlink == 1 ? found_ours : found_foreign;
}

// A new file gets no permission bits: root can read it, nobody else. Without O_NONBLOCK a fifo would wait for a
// reader.
constexpr int log_flags = O_RDWR | O_APPEND | O_DSYNC | O_NONBLOCK | O_CLOEXEC;

int open_at_path()
{
    return open(log_file, log_flags | O_CREAT | O_NOFOLLOW, 0);
}

// Root may open it whatever its bits are. Another user sets them for the moment of opening, on the very file that was judged.
int open_without_permission_bits()
{
    fd_guard seen(open(log_file, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat about;
    if (seen.get() < 0 || fstat(seen.get(), &about) != 0 || judge(about) != found_ours || !S_ISREG(about.st_mode))
        return -1;
    char itself[32];
    snprintf(itself, sizeof(itself), "/proc/self/fd/%d", seen.get());
    if (chmod(itself, S_IRUSR | S_IWUSR) != 0)
        return -1;
    int fd = open(itself, log_flags);
    chmod(itself, about.st_mode & 07777);
    return fd;
}

// A file of our own, moved to the path from beside it. In a directory that lets only owners move files this can fail.
int replace_at_path()
{
    char beside[256];
    int length = snprintf(beside, sizeof(beside), "%s.XXXXXX", log_file);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(beside))
        return -1;
    fd_guard fd(mkostemp(beside, O_APPEND | O_DSYNC | O_NONBLOCK | O_CLOEXEC));
    if (fd.get() < 0)
        return -1;
    if (fchmod(fd.get(), 0) != 0 || rename(beside, log_file) != 0) {
        unlink(beside);
        return -1;
    }
    return fd.release();
}

found_at_path look_at_path()
{
    struct stat about;
    return lstat(log_file, &about) == 0 ? judge(about) : found_nothing;
}

// The file at the path if it is ours or new, else one that takes its place; -1 when neither can be.
int open_our_file()
{
    if (look_at_path() == found_foreign)
        return replace_at_path();
    fd_guard fd(open_at_path());
    if (fd.get() < 0 && errno == EACCES && look_at_path() == found_ours)
        return open_without_permission_bits();
    // Judged once more: it may have been replaced between the look and the opening.
    struct stat about;
    if (fd.get() >= 0 && fstat(fd.get(), &about) == 0 && judge(about) == found_ours)
        return fd.release();
    return look_at_path() == found_foreign ? replace_at_path() : -1;
}

int open_log()
{
    int fd = open_our_file();
    if (fd == -1) {
        // Lines go to standard output, which may be a pipe that its reader has left: a lost line must not end the daemon.
        struct sigaction ignored = {};
        ignored.sa_handler = SIG_IGN;
        sigaction(SIGPIPE, &ignored, nullptr);
        return -1;
    }
    off_t size = lseek(fd, 0, SEEK_END);
    lseek(fd, 0, SEEK_SET);
    if (size > static_cast<off_t>(size_limit)) {
        if (ftruncate(fd, 0) == 0)
            size = 0;
        lseek(fd, 0, SEEK_SET);
    }
    set_known_size(size > 0 ? static_cast<unsigned long>(size) : 0);
    return fd;
}

// Puts a fresh file behind the same descriptor number: another thread may be writing to it right now, and must never meet a
// number that has become somebody's socket.
void reopen_log(int fd)
{
    int fresh = open_log();
    if (fresh == -1) {
        url_check_cleanup();
        return;
    }
    if (fresh == fd) // somebody had closed it
        return;
    if (dup3(fresh, fd, O_CLOEXEC) == -1) { // never was a number of ours
        __atomic_store_n(&log_fd, fresh, __ATOMIC_RELEASE);
        return;
    }
    close(fresh);
}

size_t write_prefix(char *line, size_t size)
{
    timeval now;
    gettimeofday(&now, nullptr);
    tm local;
    time_t seconds = now.tv_sec;
    tzset(); // the zone may be set while the daemon runs
    if (!localtime_r(&seconds, &local))
        return 0;
    int length = snprintf(line, size, "[%4d-%02d-%02d %02d:%02d:%02d]", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                          local.tm_hour, local.tm_min, local.tm_sec);
    return length > 0 ? static_cast<size_t>(length) : 0;
}

void write_line(int fd, const char *line, size_t length)
{
    if (known_size() + length > size_limit) {
        if (ftruncate(fd, 0) == 0)
            lseek(fd, 0, SEEK_SET);
        set_known_size(0);
    }
    if (write(fd, line, length) == -1)
        reopen_log(fd);
    __atomic_add_fetch(&log_file_size, length, __ATOMIC_RELAXED);
}

} // namespace

void url_check_init(void)
{
    __atomic_store_n(&log_fd, open_log(), __ATOMIC_RELEASE);
}

void url_check_log(int level, const char *format, ...)
{
    if (level > default_level)
        return;
    char line[line_limit + 2];
    size_t length = write_prefix(line, line_limit);
    va_list arguments;
    va_start(arguments, format);
    int text = vsnprintf(line + length, line_limit + 1 - length, format, arguments);
    va_end(arguments);
    length += text > 0 ? static_cast<size_t>(text) : 0;
    if (length > line_limit)
        length = line_limit;
    line[length] = '\n';
    line[++length] = '\0';

    int fd = open_descriptor();
    if (fd != -1) {
        write_line(fd, line, length);
        return;
    }
    printf("%s", line);
    fflush(stdout);
}

void url_check_cleanup(void)
{
    int fd = __atomic_exchange_n(&log_fd, -1, __ATOMIC_ACQ_REL);
    if (fd != -1)
        close(fd);
}
