// Lines of the spool of pushes, as the daemon has the platform library write them.
#ifndef SIMULATOR_WORLD_SPOOL_LINES_H
#define SIMULATOR_WORLD_SPOOL_LINES_H

#include "igd/igd_types.h"

#include <stdint.h>
#include <string>

// The "data" of a push: an entry of 1023, and 1008. Times are epoch seconds.
std::string presence_entry(const char *status, const std::string &mac, u32 app, int64_t start, int64_t minutes,
                           int64_t end = 0);
std::string history_entry(const std::string &mac, const std::string &alias, u32 app, int64_t minutes);

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

#endif
