// Who is at which LAN address, as the kernel knows it: a bounded table, read without a lock on the daemon's busiest path.
//
// A sequence number is odd while a writer is at work; a reader that met one tries again, and takes the writers' lock when that
// lasts. Addresses are in network order and never 0.
#ifndef PLATFORM_LINUX_NEIGHBOUR_TABLE_H
#define PLATFORM_LINUX_NEIGHBOUR_TABLE_H

#include "igd/igd_types.h"

#include <pthread.h>

constexpr u32 neighbour_most = 1024;

// Held by whoever calls the writing operations.
extern pthread_mutex_t neighbour_writers;

// Any thread that does not hold neighbour_writers.
bool neighbour_find(u32 ip, unsigned char *mac);

// Writing, with neighbour_writers held. Every entry carries the round in which it was last confirmed.
// False when the table is full.
bool neighbour_store(u32 ip, const unsigned char *mac, u32 round);
void neighbour_forget(u32 ip);
// Forgets what was not confirmed in this round.
void neighbour_sweep(u32 round);

#endif
