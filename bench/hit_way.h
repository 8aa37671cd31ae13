// The way of a hit through the real daemon, while neighbours come and go.
#ifndef BENCH_HIT_WAY_H
#define BENCH_HIT_WAY_H

#include "igd/igd_types.h"

#include <string>

struct hit_way {
    double median_ms, p99_ms; // from the kernel's message to the push, of 1,000 hits
    double resident_kb;       // afterwards
    double neighbours;        // that came or went each second
    u32 untold;               // hits that nobody told of
};

struct hit_way_report {
    hit_way quiet, churning;
};

// In the world of that many devices; takes about a minute.
hit_way_report measure_hit_way(u32 devices, const std::string &daemon_path);

#endif
