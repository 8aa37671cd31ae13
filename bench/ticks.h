// What the periodic pass costs while it holds the lock, and what it asks of the platform meanwhile.
#ifndef BENCH_TICKS_H
#define BENCH_TICKS_H

#include "igd/igd_types.h"

struct tick_cost {
    double microseconds; // median of processor time
    double calls;        // platform calls of each pass
};

struct tick_report {
    tick_cost plain;     // every 3 seconds
    tick_cost minute;    // with the report of each minute
    tick_cost catalogue; // with the refresh of each 20 minutes
};

// After measure_turns, in the same process: all apps of all devices are in use.
tick_report measure_ticks();

#endif
