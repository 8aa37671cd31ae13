// How long it takes a hit to become a word to the household: from the kernel's message to the push that the app is in use.
#ifndef SIMULATOR_WORLD_HIT_LATENCY_H
#define SIMULATOR_WORLD_HIT_LATENCY_H

#include "igd/igd_types.h"

#include <string>
#include <vector>

// A subscriber of the pushes, -1 after saying on standard error why there is none.
int subscribe_to_pushes();
// Starts the app on the device of that address and waits for the push. `sender` is a socket of open_conntrack(). In
// microseconds; negative when nobody tells of it within ten seconds. The app must not be in use on any device.
long long time_of_hit(int sender, int subscriber, const std::string &ip, u32 app);
// The value that so many of a hundred do not exceed; 0 of none.
long long percentile(std::vector<long long> values, size_t of_hundred);

#endif
