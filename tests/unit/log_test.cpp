// The log where others may write beside it, and the zone that its lines and the day's end follow.
#include "common/log.h"
#include "tests/kit/household.h"
#include "tests/kit/waiting.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class log_lines : public household {
protected:
    void SetUp() override
    {
        household::SetUp();
        url_check_cleanup();
        usual = log_file;
        log_file = path.c_str();
    }
    void TearDown() override
    {
        url_check_cleanup();
        log_file = usual;
        std::filesystem::remove_all(path);
        household::TearDown();
    }
    struct stat about() const
    {
        struct stat found = {};
        lstat(path.c_str(), &found);
        return found;
    }

    const std::string path = directory + "/planted", victim = directory + "/victim";
    const char *usual = nullptr;
};

TEST_F(log_lines, never_go_where_somebody_else_points)
{
    const struct {
        const char *what;
        std::function<bool()> plant;
    } table[] = {
        {"symbolic link", [&] { return symlink(victim.c_str(), path.c_str()) == 0; }},
        {"link to nothing", [&] { return symlink((directory + "/absent").c_str(), path.c_str()) == 0; }},
        {"second name", [&] { return link(victim.c_str(), path.c_str()) == 0; }},
        {"fifo", [&] { return mkfifo(path.c_str(), 0666) == 0; }},
        {"foreign file",
         [&] {
             std::ofstream(path) << "theirs";
             return geteuid() == 0 && chown(path.c_str(), 65534, 65534) == 0;
         }},
    };
    for (const auto &[what, plant] : table) {
        std::ofstream(victim) << "kept";
        if (!plant())
            continue; // only root can
        url_check_init();
        ASSERT_GE(log_fd, 0) << what;
        EXPECT_EQ(fcntl(log_fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        url_check_log(0, "a line");
        EXPECT_TRUE(S_ISREG(about().st_mode) && about().st_uid == geteuid() && about().st_nlink == 1) << what;
        EXPECT_EQ(about().st_mode & 07777, 0u) << what;
        EXPECT_EQ(about().st_size, 28) << what;
        EXPECT_EQ(text_of(victim), "kept") << what;
        url_check_cleanup();
        std::filesystem::remove(path);
    }
    EXPECT_FALSE(std::filesystem::exists(directory + "/absent"));

    // A directory cannot be replaced; a device was chosen by whoever chose the path.
    std::filesystem::create_directory(path);
    url_check_init();
    EXPECT_EQ(log_fd, -1);
    log_file = "/dev/null";
    url_check_init();
    EXPECT_GE(log_fd, 0);
    url_check_cleanup();
}

// In a child that stops being root: the second start finds the first one's file, which has no permission bits.
TEST_F(log_lines, of_a_second_start_follow_those_of_the_first)
{
    chmod(directory.c_str(), 01777);
    pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            _exit(99);
        for (int start : {1, 2}) {
            url_check_init();
            url_check_log(0, "start %d", start);
            url_check_cleanup();
        }
        signal(SIGPIPE, SIG_DFL);
        log_file = "/none/log";
        url_check_init();
        int ends[2];
        _exit(pipe(ends) == 0 && dup2(ends[1], 1) == 1 && close(ends[0]) == 0 && (url_check_log(0, "lost"), true) ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "99: cannot become another user; a signal: a line that nobody reads ended the process";
    EXPECT_EQ(about().st_mode & 07777, 0u);
    EXPECT_EQ(about().st_size, 2 * 29);
}

TEST_F(log_lines, and_the_end_of_the_day_follow_a_zone_that_is_set_later)
{
    device_record *dev = arrive(tablet);
    hit(5, start);
    dev->utl_num = 1;
    dev->utl[0].alert_push_num = 3;
    tick();
    EXPECT_EQ(dev->utl[0].alert_push_num, 3u);
    std::ofstream(path).close(); // readable to us
    url_check_init();
    url_check_log(0, "x");
    setenv("TZ", "EAST-3", 1);
    url_check_log(0, "y");
    EXPECT_EQ(text_of(path), "[2026-03-10 20:00:00]x\n[2026-03-10 23:00:00]y\n");
    tick();
    EXPECT_EQ(dev->utl[0].alert_push_num, 0u) << "23:00 there";
}

} // namespace
