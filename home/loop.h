// The program's one loop. Its parts (the spool, timers, the web server, the broker) tell before each wait what they wait for,
// and are called after it. None of them may wait for the network or a child process, but for three short questions: to the
// daemon (2 s at most), to the doctor (3 s), and whether a password is right (a tenth of a second).
#ifndef HOME_LOOP_H
#define HOME_LOOP_H

#include <poll.h>
#include <stddef.h>
#include <stdint.h>

#include <vector>

struct loop_part {
    // Fills up to `room` slots with what to wait for and returns how many. `wake_ms`, INT64_MAX when called, may be set to the
    // uptime in milliseconds at which it wants to be called in any case; one that has passed means at once.
    size_t (*prepare)(void *state, pollfd *slots, size_t room, int64_t now_ms, int64_t *wake_ms);
    // Called after every wait, with the slots as poll left them.
    void (*serve)(void *state, const pollfd *slots, size_t used, int64_t now_ms);
    void *state;
};

struct loop {
    std::vector<loop_part> parts;
    bool stop = false;
};

// Runs until `stop`, or until `stop_fd` (a signalfd, an eventfd; -1 for none) is readable.
void run_loop(loop *what, int stop_fd);

// Calls `due` every `period_ms`, the first time at once. The part lives as long as the timer given.
struct loop_timer {
    int64_t period_ms;
    void (*due)(void *context);
    void *context;
    int64_t next_ms = 0;
};
loop_part timer_part(loop_timer *timer);

#endif
