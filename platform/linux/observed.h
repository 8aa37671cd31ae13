// Every device that was ever met on the LAN, as far as there is room: who it is, where, and when it was last heard of.
//
// A bounded table in the order of MACs. All of it with observed_lock held. Moments are seconds of uptime_second(), so that
// setting the clock is no silence; what an earlier run saw is kept as an epoch second.
#ifndef PLATFORM_LINUX_OBSERVED_H
#define PLATFORM_LINUX_OBSERVED_H

#include "igd/igd_types.h"
#include "platform/linux/device_name.h"

#include <netinet/in.h>
#include <pthread.h>
#include <time.h>

constexpr int observed_most = 1024;
constexpr int told_off_line = -1;

struct observed_device {
    unsigned char mac[6];
    bool on_line;      // heard of within offline_after
    bool confirmed;    // the kernel is certain of it at this moment
    bool heard_now;    // in this run; else `heard` and `on_line_since` say nothing
    bool unresolved;   // its neighbour entry failed, is gone, or belongs to another device now
    signed char tries; // probes left for a device that is not on line
    int told;          // the role with which the daemon was told that it is on line, or told_off_line
    u32 ip;            // the last one, network order; 0 for none
    u32 round;         // of the neighbour table's reading in which it was met last
    // The same of IPv6, of which a device has several addresses: the one that the kernel was certain of last.
    bool confirmed6;
    in6_addr ip6; // all zero: none
    u32 round6;
    u64 probed;
    u64 heard, on_line_since;
    time_t seen_before;           // epoch, 0 unknown
    char lease[device_name_room]; // the name of its DHCP lease
};

extern pthread_mutex_t observed_lock;

u64 uptime_second();
int observed_count();
observed_device *observed_at(int place);
// Null when it is not there.
observed_device *observed_find(const unsigned char *mac);
// The one behind this MAC in the order of MACs; null for the very first. Null at the end.
observed_device *observed_next(const unsigned char *after);
// Found or made; null when the table is full of devices that must be kept. Another may have given way: pointers of before are
// void.
observed_device *observed_make(const unsigned char *mac);
// A device that gave way while the daemon knew of it, and is to be told off line; false when there is none.
bool observed_farewell(unsigned char *mac);
void observed_farewell_done();
// When it was last heard of, as an epoch second; 0 unknown.
time_t observed_last_seen(const observed_device &device);
// A moment of this run as an epoch second.
time_t epoch_of(u64 moment);

#endif
