// What one message costs its receiver, in nanoseconds of the receiving thread's own processor time.
//
// Sender and receiver share one core, so that a message arrives as it does on a busy router: in cache, and never while the
// receiver is at work. All receivers wait in select on the same three kinds of descriptors:
//   bare   select, malloc(8192), read, free, one message a turn
//   turn   the daemon's loop with all that it does with a continuing hit
//   peer   select, and decoding the usual way (peer.h), one message a turn
#ifndef BENCH_TURNS_H
#define BENCH_TURNS_H

#include "igd/igd_types.h"

struct turn_costs {
    double bare, turn, peer;           // medians over the rounds
    double turn_to_bare, turn_to_peer; // medians of each round's own
    double turn_switches;              // waits of the daemon's thread for each message
};

struct turn_report {
    u32 devices;
    turn_costs queued;    // all are there before the receiver may run
    turn_costs waited;    // each wakes a receiver that waits for it
    u32 tracked_of_10000; // hits that reached a record, of 10,000 sent
    u32 peer_of_10000;    // messages that the peer decoded whole
};

// In the world of that many devices. Starts the daemon's parts in this process, which they never leave.
turn_report measure_turns(u32 devices, int rounds);

#endif
