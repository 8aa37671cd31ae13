#include "tools/appidentctl/kept_history.h"

#include "tools/appidentctl/device_text.h"
#include "tools/appidentctl/json_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int exit_not_found = 127; // as the shell has it

// The new process. A box whose PATH lacks the administrator's programs has it where it was installed.
[[noreturn]] void become_home(const std::vector<const char *> &arguments, int output, bool say_why)
{
    dup2(output, STDOUT_FILENO);
    if (!say_why)
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    char *const *words = const_cast<char *const *>(arguments.data());
    execvp(words[0], words);
    execv(APPIDENT_HOME_PROGRAM, words);
    _exit(exit_not_found);
}

std::string read_to_end(int fd)
{
    std::string text;
    char piece[16384];
    for (ssize_t size = 0; (size = read(fd, piece, sizeof(piece))) > 0 || (size < 0 && errno == EINTR);)
        text.append(piece, size > 0 ? static_cast<size_t>(size) : 0);
    return text;
}

} // namespace

history_outcome read_history(const command_line &line, const history_days &days, bool say_why, json_tree *report)
{
    std::vector<const char *> arguments = {"appident-home",   "--report", "--json",          "--day",
                                           days.from.c_str(), "--until",  days.until.c_str()};
    if (const char *database = line.value[option_database])
        arguments.insert(arguments.end(), {"--database", database});
    arguments.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return history_unreadable;
    fd_guard output(ends[0]);
    pid_t child = fork();
    if (child == 0)
        become_home(arguments, ends[1], say_why);
    close(ends[1]);
    if (child < 0)
        return history_unreadable;
    std::string text = read_to_end(output.get());
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (code != 0)
        return code == exit_not_found ? history_not_installed : history_unreadable;
    report->reset(cJSON_Parse(text.c_str()));
    return cJSON_IsObject(report->get()) ? history_read : history_unreadable;
}

void add_kept_devices(const cJSON *report, household *known)
{
    const cJSON *item = nullptr;
    cJSON_ArrayForEach(item, cJSON_GetObjectItem(report, "devices")) {
        known_device one;
        one.mac = device_text(json_text(item, "device"));
        one.name = json_text(item, "name");
        if (!one.mac.empty() && !find_device(*known, one.mac))
            known->devices.push_back(one);
    }
    known->devices_known = true;
}
