// The periodic pass: steps the minute windows, ends silent sessions, closes the day. Takes the lock for a whole tick.
#ifndef APPIDENT_TRACKING_TICK_H
#define APPIDENT_TRACKING_TICK_H

#include "igd/igd_types.h"

// What the pass remembers from one tick to the next; epoch seconds.
struct tick_state {
    u32 last_time;              // last minute report
    u32 appid_update_last_time; // last catalogue refresh
    bool day_open;              // a day-end pass may run
};

tick_state start_ticking(void);
void run_tick(tick_state &state);

// The thread's body: a tick and sleep(3), repeated without end.
void *app_ident_thread(void *param);

// The parts of a tick that others call; the lock is held.
void step_cache_hit_record(void);
// Four bytes of /dev/urandom, the time when there are none.
u32 my_get_rand(void);

#endif
