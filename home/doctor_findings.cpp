#include "home/doctor_findings.h"

#include "home/history_json.h"
#include "home/push_line.h"
#include "platform/linux/client/json_text.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>

namespace {

constexpr int64_t longest_ms = 3000;
// Seconds for each of the tool's two questions to the daemon: where nobody answers, it prints what it found only after them.
constexpr const char *seconds_to_answer = "1";
constexpr size_t answer_most = 64 * 1024, text_most = 500;

void add_finding(cJSON *list, const char *level, const std::string &text)
{
    cJSON *item = add_item(list);
    add_text(item, "level", level);
    add_text(item, "text", text);
}

// All that comes until its end, the deadline, or too much of it.
std::string read_until_end(int fd)
{
    std::string text;
    for (int64_t end = uptime_ms() + longest_ms; text.size() < answer_most;) {
        pollfd slot = {fd, POLLIN, 0};
        int64_t left = end - uptime_ms();
        if (left <= 0 || poll(&slot, 1, static_cast<int>(left)) <= 0)
            break;
        char piece[4096];
        ssize_t got = read(fd, piece, sizeof(piece));
        if (got <= 0)
            break;
        text.append(piece, static_cast<size_t>(got));
    }
    return text;
}

std::string output_of_doctor(const std::string &tool)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return "";
    fd_guard out(ends[0]);
    fd_guard in(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    sigset_t none;
    sigemptyset(&none);
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    std::string words[] = {tool, "doctor", "--json", "--timeout", seconds_to_answer};
    char *arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(), words[4].data(), nullptr};
    pid_t process = 0;
    int failed = posix_spawn(&process, tool.c_str(), &actions, &attributes, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (failed)
        return "";
    close(in.release());
    std::string text = read_until_end(out.get());
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    return text;
}

} // namespace

void add_doctor_findings(cJSON *list, const std::string &tool)
{
    json_tree told(parse_json_text(output_of_doctor(tool).c_str(), answer_most));
    const cJSON *one = nullptr, *checks = cJSON_GetObjectItemCaseSensitive(told.get(), "checks");
    cJSON_ArrayForEach(one, checks) {
        std::string check = read_words(one, "check", text_most), text = read_words(one, "text", text_most),
                    advice = read_words(one, "advice", text_most), level = read_words(one, "level", text_most);
        add_finding(list, level.c_str(), check + ": " + text + (advice.empty() ? "" : "; " + advice));
    }
    if (cJSON_GetArraySize(checks) == 0)
        add_finding(list, "warning", tool + " doctor cannot be run, or gave no answer in time");
}
