// What pushes say, joined to sessions, alerts and days.
//
// The daemon tells a session's start (1023), how long it has lasted (1023, each minute) and its sum when it is over (1008), in
// lines of which any may be missing. docs/home.md gives the rules and the reason of each.
#ifndef HOME_JOINING_H
#define HOME_JOINING_H

#include "home/push_line.h"

// Takes one line of the spool, without its line feed; `text` ends with a NUL at `length`. What is wrong with it is counted.
void take_line(history *of, const char *text, size_t length);
// A part of a line longer than push_line_limit was passed over.
void pass_over_long_line(history *of);

// What the daemon says is in use now, asked with request 9.
struct use_now {
    std::string mac;
    u32 app;
    int64_t start;   // epoch second
    int64_t minutes; // whole ones so far
};
// Brings the open sessions of the devices asked about to what the daemon says. `asked`: their MACs.
void take_now(history *of, const std::vector<std::string> &asked, const std::vector<use_now> &in_use, int64_t time);

// Ends the sessions of which nothing has been heard for so long that the daemon cannot have them any more.
void end_silent_sessions(history *of, int64_t time);

#endif
