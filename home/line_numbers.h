// The daemon numbers its lines from 1 in each of its runs. What is missing from the numbers was lost, and exactly that many;
// what comes again was taken before.
#ifndef HOME_LINE_NUMBERS_H
#define HOME_LINE_NUMBERS_H

#include "home/push_line.h"

enum line_order {
    line_follows,  // the next one, or a line without a number
    line_skips,    // lines before it were lost; the gap is noted
    line_restarts, // the first that we see of a new run of the daemon
    line_late,     // of before: it fills a gap, or comes from an older run
    line_repeated, // taken before
};

// Notes the number and what it says about others.
line_order take_number(history *of, const push_line &line);
// What lies before the next line is unknown: nothing follows from its time. With `unnumbered`, a gap of unknown size is noted.
void note_break(history *of, int64_t time, bool unnumbered);

struct gap_note {
    int64_t start, end; // epoch seconds of the lines on either side
    int64_t lost;       // lines; -1: unknown
    const char *why;    // "lost", "restart", "before", "clock"
    std::string run;
    int64_t first, last; // numbers lost, 0 for none
};
void add_gap(history *of, const gap_note &gap);

#endif
