#include "home/child_process.h"

#include "common/guards.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::vector<char *> pointers_to(const std::vector<std::string> &texts)
{
    std::vector<char *> all;
    for (const std::string &one : texts)
        all.push_back(const_cast<char *>(one.c_str()));
    all.push_back(nullptr);
    return all;
}

int file_with(const std::string &text)
{
    fd_guard file(memfd_create("input", MFD_CLOEXEC));
    if (file.get() < 0 || write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        lseek(file.get(), 0, SEEK_SET) != 0)
        return -1;
    return file.release();
}

// In the child, where nothing but system calls is safe: another thread may have held a lock when it was forked.
[[noreturn]] void become(char *const *arguments, char *const *environment, int input)
{
    constexpr int first_of_others = 3, exit_not_started = 127;
    constexpr unsigned int most_others = 1024;
    setpgid(0, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    int nowhere = open("/dev/null", O_WRONLY);
    if (dup2(input, 0) < 0 || dup2(nowhere, 1) < 0)
        _exit(exit_not_started);
#ifdef SYS_close_range
    if (syscall(SYS_close_range, first_of_others, ~0u, 0) != 0)
#endif
        for (unsigned int fd = first_of_others; fd < most_others; ++fd)
            close(static_cast<int>(fd));
    execve(arguments[0], arguments, environment);
    _exit(exit_not_started);
}

} // namespace

bool start_child(child_process *child, const std::vector<std::string> &arguments, const std::vector<std::string> &environment,
                 const std::string &input, int64_t deadline_ms)
{
    fd_guard file(file_with(input));
    if (file.get() < 0)
        return false;
    std::vector<char *> argv = pointers_to(arguments), envp = pointers_to(environment);
    pid_t id = fork();
    if (id == 0)
        become(argv.data(), envp.data(), file.get());
    if (id < 0)
        return false;
    setpgid(id, id); // whoever of the two comes first
    *child = {id, deadline_ms};
    return true;
}

child_state look_after_child(child_process *child, int64_t now_ms)
{
    if (child->id < 0)
        return child_none;
    int status = 0;
    pid_t ended = waitpid(child->id, &status, WNOHANG);
    if (ended == 0 && now_ms < child->deadline_ms)
        return child_running;
    if (ended == 0) {
        end_child(child);
        return child_failed;
    }
    child->id = -1;
    return ended > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? child_succeeded : child_failed;
}

void end_child(child_process *child)
{
    if (child->id < 0)
        return;
    kill(-child->id, SIGKILL);
    waitpid(child->id, nullptr, 0);
    child->id = -1;
}
