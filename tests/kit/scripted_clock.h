// The C library's clock, set by the tests: time, gettimeofday and sleep of the whole program. It stands still until told.
#ifndef TESTS_KIT_SCRIPTED_CLOCK_H
#define TESTS_KIT_SCRIPTED_CLOCK_H

// Epoch seconds.
void set_clock(long long now);
long long clock_now();

// A call of sleep. On the test's own thread it moves the clock; any other thread stays asleep for ever.
struct nap {
    unsigned int seconds;
    bool lock_was_held; // device_apps_mtx, by anybody
};
// Returns when another thread has gone to sleep.
nap wait_for_worker_nap();

#endif
