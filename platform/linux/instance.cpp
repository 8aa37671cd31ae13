#include "platform/linux/instance.h"

#include "common/guards.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/directories.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>

namespace {

constexpr const char *usage =
    "usage: appident [--help | --version]\n"
    "\n"
    "Tells which applications each device of the household uses, and for how long. It runs until it is\n"
    "ended by a signal, and is started by the system's service manager. Its settings are in\n"
    "/etc/appident/platform.json, its log is /tmp/appident.log; see appident(8) and appidentctl(1).\n";

int lock = -1;
bool refused = false;

void tell_owner(int fd)
{
    char owner[16] = "";
    ssize_t length = pread(fd, owner, sizeof(owner) - 1, 0);
    owner[length > 0 ? length : 0] = 0;
    fprintf(stderr, "appident: another one runs already (process %s); this one ends\n", *owner ? owner : "unknown");
}

void write_owner(int fd)
{
    char owner[16];
    int length = snprintf(owner, sizeof(owner), "%d", getpid());
    // Only for people to read.
    bool written = ftruncate(fd, 0) == 0 && pwrite(fd, owner, static_cast<size_t>(length), 0) == length;
    static_cast<void>(written);
}

} // namespace

void answer_command_line()
{
    char words[256] = "";
    fd_guard line(open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC));
    ssize_t length = line.get() >= 0 ? read(line.get(), words, sizeof(words) - 1) : 0;
    size_t program = strlen(words) + 1;
    const char *first = length > static_cast<ssize_t>(program) ? words + program : "";
    bool help = strcmp(first, "--help") == 0;
    if (!help && strcmp(first, "--version") != 0)
        return;
    fputs(help ? usage : "appident " APPIDENT_VERSION "\n", stdout);
    exit(fflush(stdout) == 0 ? 0 : 1);
}

bool take_instance_lock()
{
    if (lock >= 0)
        return true;
    char path[state_path_size];
    runtime_path(path, "lock");
    make_directory(settings().runtime_dir, 0755);
    fd_guard fd(open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    if (fd.get() < 0) {
        fprintf(stderr, "appident: no lock against a second one: %s: %s\n", path, strerror(errno));
        return true;
    }
    if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        tell_owner(fd.get());
        refused = true;
        return false;
    }
    write_owner(fd.get());
    lock = fd.release();
    return true;
}

bool instance_refused()
{
    return refused;
}
