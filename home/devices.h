// The table of devices: one row for each MAC that a push or the daemon named.
#ifndef HOME_DEVICES_H
#define HOME_DEVICES_H

#include "home/history.h"

// The most devices that are kept; phones that change their MAC every day fill the table slowly.
constexpr int64_t devices_most = 5000;
constexpr size_t device_name_most = 96; // bytes

// What request 1000 tells of a device.
struct device_news {
    std::string mac, name, name_from, address, role_from;
    int64_t role;
    bool on_line, private_mac;
    int64_t last_seen;
};

// The row of the MAC, made when it is new. 0 when there are too many, which is counted, or without a database.
int64_t device_row(history *of, const std::string &mac, int64_t time);
// A push named the device at this time; its name is used until a better one is known.
void note_name(history *of, int64_t device, const std::string &name);
void note_role(history *of, int64_t device, int64_t role);
void note_news(history *of, const device_news &news, int64_t time);

// Erases the device and all that is known of it, and lets nothing of it in the file. False when there is no such device.
bool forget_device(history *of, const std::string &mac);

#endif
