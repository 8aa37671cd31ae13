#include "simulator/world/daemon_process.h"

#include "simulator/world/household_files.h"

#include "common/counters.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

pid_t start_daemon(const std::string &path)
{
    fflush(nullptr);
    pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setenv("APPIDENT_PLATFORM_SETTINGS", settings_path, 1);
    execl(path.c_str(), path.c_str(), static_cast<char *>(nullptr));
    perror(path.c_str());
    _exit(127);
}

bool daemon_runs(pid_t daemon)
{
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(daemon), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

int stop_daemon(pid_t daemon)
{
    kill(daemon, SIGTERM);
    int status = 0;
    if (waitpid(daemon, &status, 0) != daemon)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

u32 daemon_counter(const std::string &name)
{
    counter_reading readings[64];
    u32 owner = 0;
    int filled = counter_page_read(counters_path, readings, 64, &owner);
    for (int i = 0; i < filled; i++)
        if (name == readings[i].name)
            return readings[i].value;
    return 0;
}

bool daemon_serves()
{
    return daemon_counter("serving") != 0;
}
