// The household's devices as the daemon and the tools meet them: what the person wrote and what was observed, as one.
#ifndef PLATFORM_LINUX_DEVICES_H
#define PLATFORM_LINUX_DEVICES_H

#include "common/guards.h"
#include "igd/igd_types.h"
#include "platform/linux/device_name.h"

#include <netinet/in.h>
#include <time.h>

enum name_source { name_of_person, name_of_lease, name_of_nobody };

struct known_device {
    unsigned char mac[6];
    char name[device_name_room];
    name_source name_from;
    u32 ip;       // network order, 0 unknown
    in6_addr ip6; // all zero: unknown
    int role;     // role_unclear where the roster's makes no sense
    bool role_given;
    int group; // negative for none
    bool on_line;
    bool away;
    time_t on_line_since, last_seen; // epoch seconds, 0 unknown
};

// All from any thread. Whether anything may be said: not while the roster, and with it the roles, cannot be read. To be asked
// first: it brings the roster up to date.
bool devices_available();
bool device_find(const unsigned char *mac, known_device *out);
// The first one behind this MAC in the order of MACs; null for the very first. False at the end.
bool device_next(const unsigned char *after, known_device *out);

#endif
