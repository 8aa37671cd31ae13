// Plays a scenario against the running daemon, at the pace of the clock that both see.
#ifndef SIMULATOR_PLAYER_H
#define SIMULATOR_PLAYER_H

#include "simulator/outcome.h"
#include "simulator/plan.h"

#include <sys/types.h>

struct played {
    bool complete = false; // the daemon served from before the first step until the end
    std::vector<outcome> seen;
    u32 unreadable = 0; // pushes that made no sense
};

// Sends every step when its time has come and tells the timeline on standard output.
played play(const scenario &household, const std::vector<step> &plan, pid_t daemon);

// Wall clock, epoch seconds.
moment now_by_the_clock();

// The words in front of a command that give it and everything below it one clock: it begins at `start` and runs `speed` times
// as fast as life. Sleeping and waiting are as much shorter.
std::vector<std::string> fast_clock_words(moment start, int speed);

#endif
