// The household's devices, from state_dir/roster.json:
//   {"home":7,"devices":[{"mac":"AA-BB-CC-DD-EE-FF","role":1,"name":"Tablet","group":5,"online":true}, ...]}
// "role" is 0 when missing, "online" true, "name" empty; without "group" the device belongs to none. "home" is the household's
// own number, 0 when missing. Entries that make no sense are left out and counted. The file is read again whenever it changed.
#ifndef PLATFORM_LINUX_ROSTER_H
#define PLATFORM_LINUX_ROSTER_H

#include "common/guards.h"

struct roster_device {
    unsigned char mac[6];
    int role;
    bool online;
    int group; // negative for none
    char name[33];
};

enum roster_look { roster_unavailable, roster_unknown_device, roster_known_device };

// All from any thread. Unavailable until a roster could be read once.
roster_look roster_find(const unsigned char *mac, roster_device *out, int *home);
// The device service's answers with all devices on line, or off line; null while unavailable or without memory.
heap_text roster_list(bool online);

#endif
