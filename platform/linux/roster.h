// What the household's person says about devices: state_dir/roster.json, theirs to write and never changed by what is observed.
//   {"home":7,"devices":[{"mac":"AA-BB-CC-DD-EE-FF","role":1,"name":"Tablet","group":5,"online":true}, ...]}
// All but "mac" may be left out: a device without "role" has the default one, without "group" it belongs to none, without
// "online" the kernel's neighbours decide. "home" is the household's own number, 0 when missing. Entries that make no sense are
// left out and counted. The file is read again whenever it changed; what no longer makes sense, or is gone, leaves the last
// good one in use.
#ifndef PLATFORM_LINUX_ROSTER_H
#define PLATFORM_LINUX_ROSTER_H

#include "igd/igd_types.h"
#include "platform/linux/device_name.h"

constexpr int roster_most = 1024;
// No role was given; one was given that makes no sense, and the device has none that could be told.
constexpr int role_none = -1;
constexpr int role_unclear = -2;

enum roster_presence : signed char { presence_observed, presence_off, presence_on };

struct roster_device {
    unsigned char mac[6];
    int role;
    roster_presence presence;
    int group; // negative for none
    char name[device_name_room];
};

// The first word decides what may be said of a device without a role: where a roster has vanished nothing may, as role 0 would
// delete its settings.
enum roster_state {
    roster_unavailable, // it cannot be read, and there was one
    roster_never_made,
    roster_readable,
};

// All from any thread. A roster was there in an earlier run: one that is missing has vanished.
void roster_expect();
// Looks at the file, and reads it anew when it changed; *generation, where wanted, is another number then.
roster_state roster_look(u32 *generation = nullptr);
// Of the contents read last, without a look at the file. False for a device that is not listed.
bool roster_find(const unsigned char *mac, roster_device *out);
// The first device behind this MAC in the order of MACs; null for the very first. False at the end.
bool roster_next(const unsigned char *after, roster_device *out);
int roster_home();

#endif
