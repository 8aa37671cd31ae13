// A history in a directory of its own that takes what a daemon says.
#ifndef HOME_DAEMON_VOICE_H
#define HOME_DAEMON_VOICE_H

#include "home/history.h"
#include "simulator/world/spool_lines.h"

#include <gtest/gtest.h>

#include <string>

constexpr const char *tablet = "AA-BB-CC-DD-EE-01";
constexpr const char *phone = "AA-BB-CC-DD-EE-02";
constexpr u32 video = 1001, chat = 1002, game = 1003;
constexpr int64_t evening = 1699990800; // 2023-11-14 19:40 UTC

// A directory that goes when it does.
struct scratch_directory {
    std::string path;
    scratch_directory();
    ~scratch_directory();
    std::string file(const char *name) const { return path + "/" + name; }
};

void write_file(const std::string &path, const std::string &text);
// Runs a command of the shell; what it prints.
std::string output_of(const std::string &command, int *status = nullptr);

// Each line of the text in turn, as the follower takes them.
void take_text(history *of, const std::string &text);

struct history_test : testing::Test {
    scratch_directory directory;
    std::string path = directory.file("home.db");
    history all;
    daemon_voice daemon;

    void SetUp() override; // the zone is UTC
    void TearDown() override { close_history(&all); }
    bool begin(const char *vfs = nullptr);
    void take(); // what was said
    int64_t value_of(const std::string &sql);
    // Minutes of all sessions and, separately, of all days.
    int64_t session_minutes() { return value_of("SELECT coalesce(sum(minutes),0) FROM session"); }
    int64_t day_minutes() { return value_of("SELECT coalesce(sum(minutes),0) FROM day_use"); }
};

#endif
