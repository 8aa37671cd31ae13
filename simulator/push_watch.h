// Follows the pushes of the daemon, one JSON object a line, as they are written.
#ifndef SIMULATOR_PUSH_WATCH_H
#define SIMULATOR_PUSH_WATCH_H

#include "simulator/outcome.h"

#include <fstream>

struct push_watch {
    std::ifstream file;
    std::string unfinished; // the beginning of a line
    u32 unreadable = 0;     // lines that make no sense
};

// What was pushed since the last call; `now` is noted as the time at which it was seen.
std::vector<outcome> read_pushes(push_watch &watch, const scenario &household, moment now);

// The apps of an answer to "what is the device doing now"; one outcome of subject 0 when there are none.
std::vector<outcome> read_answer(const char *text, int device, moment now);

#endif
