// The time of day for live sources, and which stamps of the kernel's are believed.
#ifndef FEED_WALL_CLOCK_H
#define FEED_WALL_CLOCK_H

#include <stdint.h>
#include <time.h>

// Epoch microseconds.
inline uint64_t wall_us()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

// A packet's own time; far from now it is no time of this packet, and now holds.
inline uint64_t believed_us(uint64_t seconds, uint64_t microseconds, uint64_t now_us)
{
    bool is_near = seconds + 60 > now_us / 1000000 && seconds < now_us / 1000000 + 60 && microseconds < 1000000;
    return is_near ? seconds * 1000000 + microseconds : now_us;
}

#endif
