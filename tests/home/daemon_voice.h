// Lines of a spool as the daemon writes them, and a history in a directory of its own that takes them.
#ifndef HOME_DAEMON_VOICE_H
#define HOME_DAEMON_VOICE_H

#include "home/history.h"

#include <string>

constexpr const char *tablet = "AA-BB-CC-DD-EE-01";
constexpr const char *phone = "AA-BB-CC-DD-EE-02";
constexpr u32 video = 1001, chat = 1002, game = 1003;

// Writes lines with the number that is next; `time` is the daemon's clock.
struct daemon_voice {
    std::string run = "00000000000000aa";
    int64_t seq = 0;
    int64_t time = 0;
    bool numbered = true;
    std::string text; // all lines so far

    void say(int code, const std::string &data, int64_t occur_time = 0);
    void presence(const char *status, const char *mac, u32 app, int64_t start, int64_t minutes, int64_t end = 0);
    void history_of(const char *mac, u32 app, int64_t minutes, int64_t occur_time = 0);
    void status_of(const char *mac, u32 app, int status);
    // A session as it usually goes: "online" at `start`, "using" each minute, "offline" and its report when it has been silent
    // for three minutes. Leaves the clock there.
    void whole_session(const char *mac, u32 app, int64_t start, int64_t minutes);
    void using_until(const char *mac, u32 app, int64_t start, int64_t minutes);
};

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
// "video 20:00 +11 reported; ..." for all sessions of the device by start; times in UTC, bytes left out.
std::string sessions_of(history *of, const char *mac);
// Minutes of all sessions and, separately, of all days.
int64_t session_minutes(history *of);
int64_t day_minutes(history *of);
int64_t value_of(history *of, const char *sql);

#endif
