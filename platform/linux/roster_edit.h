// The one change that the library makes to the person's roster, on their word: a device's name or role.
#ifndef PLATFORM_LINUX_ROSTER_EDIT_H
#define PLATFORM_LINUX_ROSTER_EDIT_H

#include "platform/linux/device_name.h"

struct roster_change {
    unsigned char mac[6];
    bool has_name, has_role;
    char name[device_name_room]; // empty takes the name away
    int role;
};

// Rewrites the file whole: what it holds besides stays, in its order. False when it is there and cannot be read, has vanished,
// is full, or cannot be written; then nothing has changed. Flushes to the disk.
bool change_roster(const roster_change &change);

#endif
