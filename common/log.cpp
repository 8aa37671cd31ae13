#include "common/log.h"

#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
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

// A new file gets no permission bits, on purpose: root reads it, nobody else.
int open_log()
{
    int fd = open(log_file, O_RDWR | O_APPEND | O_DSYNC | O_CREAT, 0);
    if (fd == -1)
        return -1;
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
    if (dup2(fresh, fd) == -1) { // never was a number of ours
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
    char line[line_limit + 2] = {};
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
