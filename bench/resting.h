// What the real daemon takes when nothing happens: memory and processor time.
#ifndef BENCH_RESTING_H
#define BENCH_RESTING_H

#include "igd/igd_types.h"

#include <string>
#include <sys/types.h>

struct resting_report {
    u32 devices;
    double start_kb;     // resident once it serves
    double full_kb;      // resident with all apps of all devices in use
    double idle_seconds; // processor time of an hour without traffic
};

// Waits until it serves; exits where it does not.
pid_t start_serving_daemon(const std::string &path);
double resident_kb(pid_t process);

// In the world of that many devices; takes about 22 seconds and the given time of rest.
resting_report measure_rest(u32 devices, const std::string &daemon_path, unsigned seconds);

#endif
