// Attacks on what the daemon has in /tmp, and on its being the only one.
#include "tests/system/attack/attack.h"

#include "common/counters.h"
#include "common/guards.h"
#include "simulator/world/daemon_process.h"
#include "simulator/world/household_files.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int speed = 400;
constexpr const char *victim = "/tmp/household/victim";
const std::string paths[] = {request_socket_path, daemon_log_path, counters_path};

bool listen_at(int fd, const char *path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string(path).copy(address.sun_path, sizeof address.sun_path - 1);
    return bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 && listen(fd, 5) == 0 &&
           chmod(path, 0777) == 0;
}

ino_t node_at(const std::string &path)
{
    struct stat found = {};
    return lstat(path.c_str(), &found) == 0 ? found.st_ino : 0;
}

bool is_ours(const std::string &path)
{
    struct stat found = {};
    return lstat(path.c_str(), &found) == 0 && found.st_uid == 0 && (S_ISREG(found.st_mode) || S_ISSOCK(found.st_mode));
}

const struct {
    const char *kind;
    void (*plant)(const std::string &path);
} plants[] = {
    {"symbolic link", [](const std::string &path) { static_cast<void>(!symlink(victim, path.c_str())); }},
    {"fifo", [](const std::string &path) { mkfifo(path.c_str(), 0666); }},
    {"file", [](const std::string &path) { std::ofstream(path) << "theirs"; }},
    {"directory", [](const std::string &path) { mkdir(path.c_str(), 0777); }},
};

void clear_paths()
{
    for (const std::string &path : paths)
        std::filesystem::remove_all(path);
}

void plant_as_nobody(const std::string &path, void (*plant)(const std::string &))
{
    child_process attacker(start_nobody([&] {
        plant(path);
        pause();
    }));
    comes_true([&] { return node_at(path) != 0; });
}

} // namespace

attack_row race_for_the_socket()
{
    constexpr int restarts = 60;
    int lost = 0, taken = 0;
    child_process attacker(start_nobody([] {
        fd_guard fd(socket(AF_UNIX, SOCK_SEQPACKET, 0));
        unlink(request_socket_path);
        if (listen_at(fd.get(), request_socket_path))
            usleep(1000);
    }));
    for (int i = 0; i < restarts; i++) {
        unlink(request_socket_path); // as one who cleans /tmp would; the attacker has it at once
        taken += comes_true([] { return node_at(request_socket_path) != 0; });
        child_process daemon(start_fast_daemon(speed));
        lost += !daemon_answers() || !is_ours(request_socket_path);
    }
    return {"race for the request socket", std::to_string(restarts) + " restarts, taken before " + std::to_string(taken),
            std::to_string(lost) + " lost", lost == 0 && taken == restarts};
}

attack_row plant_before_the_start()
{
    int tried = 0, missed = 0;
    for (const std::string &path : paths) {
        for (const auto &[kind, plant] : plants) {
            clear_paths();
            std::ofstream(victim) << "kept";
            plant_as_nobody(path, plant);
            fd_guard open_before(std::string(kind) == "file" ? open(path.c_str(), O_RDONLY) : -1);
            child_process daemon(start_fast_daemon(speed));
            bool stands = daemon_answers() && text_of(victim) == "kept";
            // The socket's place is taken even from a directory; without a log or a page the daemon goes on.
            if (std::string(kind) != "directory" || path == request_socket_path)
                stands = stands && comes_true([&] { return is_ours(path); });
            struct stat leaked = {};
            if (open_before.get() >= 0 && fstat(open_before.get(), &leaked) == 0)
                stands = stands && leaked.st_size == 6;
            tried++;
            missed += !stands;
            if (!stands)
                fprintf(stderr, "missed: %s at %s\n", kind, path.c_str());
        }
    }
    clear_paths();
    return {"planted at /tmp paths before the start", std::to_string(tried) + " (link, fifo, file, directory)",
            std::to_string(missed) + " followed, stopped or silenced", missed == 0};
}

attack_row replace_at_run_time()
{
    clear_paths();
    child_process daemon(start_fast_daemon(speed));
    bool stands = daemon_answers() && comes_true([] { return is_ours(paths[2]); });
    ino_t before[] = {node_at(paths[0]), node_at(paths[1]), node_at(paths[2])};
    int tried = 0;
    for (const std::string &path : paths) {
        for (const auto &[kind, plant] : plants) {
            const std::string beside = "/tmp/beside";
            child_process attacker(start_nobody([&, plant = plant] {
                unlink(path.c_str());
                rename(path.c_str(), "/tmp/moved");
                plant(path);
                plant(beside);
                rename(beside.c_str(), path.c_str());
                if (truncate(path.c_str(), 0) == 0 || chmod(path.c_str(), 0666) == 0)
                    std::ofstream(path) << "theirs";
                usleep(1000);
            }));
            usleep(30000);
            tried++;
            std::filesystem::remove_all(beside);
        }
    }
    int changed = 0;
    for (int i = 0; i < 3; i++)
        changed += node_at(paths[i]) != before[i];
    // Root may truncate the counters; that ends nobody.
    stands =
        stands && truncate(counters_path, 0) == 0 && daemon_answers() && comes_true([] { return daemon_counter("ticks") > 0; });
    return {"replaced at run time", std::to_string(tried) + " ways, and a truncated page", std::to_string(changed) + " changed",
            stands && changed == 0};
}

attack_row start_once_more()
{
    constexpr int starts = 10;
    clear_paths();
    child_process daemon(start_fast_daemon(speed));
    bool stands = daemon_answers();
    ino_t before[] = {node_at(paths[0]), node_at(paths[1]), node_at(paths[2])};
    int refused = 0;
    for (int i = 0; i < starts; i++) {
        pid_t second = start_fast_daemon(speed), ended = 0;
        int status = 0;
        if (!comes_true([&] { return ended == second || (ended = waitpid(second, &status, WNOHANG)) == second; })) {
            child_process runs_on(second);
            break;
        }
        refused += WIFEXITED(status) && WEXITSTATUS(status) == 255;
    }
    stands = stands && refused == starts;
    for (const char *words : {" --version | grep -q '^appident [0-9]'", " --help | grep -q '^usage: appident'",
                              " 2>&1 | grep -q 'another one runs already'"})
        stands = stands && system((std::string(DAEMON_PATH) + words).c_str()) == 0;
    for (int i = 0; i < 3; i++)
        stands = stands && node_at(paths[i]) == before[i];
    return {"a second instance", std::to_string(starts) + " starts as root", std::to_string(refused) + " refused",
            stands && daemon_answers()};
}
