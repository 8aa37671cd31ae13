// The household as people speak of it: devices, apps and classes by name.
//
// Devices come from the platform library (which adds what it observed to the roster), or from the roster alone where no daemon
// answers. Apps come from the installed catalogue and the household's own. Any of these may be missing.
#ifndef APPIDENTCTL_HOUSEHOLD_H
#define APPIDENTCTL_HOUSEHOLD_H

#include "common/guards.h"
#include "igd/igd_types.h"
#include "platform/linux/client/limit_classes.h"
#include "tools/appidentctl/command_line.h"
#include "tools/appidentctl/places.h"

#include <map>
#include <string>
#include <time.h>
#include <vector>

struct known_device {
    std::string mac;     // MAC text
    std::string name;    // may be empty
    std::string address; // may be empty
    int role = 0;
    bool on_line = false;
    time_t on_line_since = 0; // epoch seconds, 0: not known
    bool away = false;        // on line, but silent for a while
    bool private_mac = false; // the device made its MAC up and may change it
};

struct known_app {
    std::string name;
    u32 small_class; // 0: not in the catalogue's classes
};

struct household {
    std::map<u32, known_app> apps;
    bool devices_known = false; // false: neither the library nor a roster told of any
    std::string lan_interface;  // empty: not told
    std::string lan_reason;     // why this one
    std::vector<known_device> devices;
};

household read_household(const places &where);

// 0 for an app that no limit covers.
u32 class_of_app(const household &known, u32 app_id);
// "Video", or "" for an app that is not in the catalogue.
std::string app_name(const household &known, u32 app_id);
// "1001 Video", or the number alone.
std::string app_label(const household &known, u32 app_id);
// Null when the household does not know the device.
const known_device *find_device(const household &known, const std::string &mac);
// Its name, else "device EE-FF" after the end of its MAC.
std::string device_name(const household &known, const std::string &mac);

// "watched with limits" and the like.
const char *role_name(int role);

// What a person wrote for a device, an app or a class. Empty or 0 after saying on standard error what is wrong, with names that
// come near. A MAC is taken whether the device is known or not, an app's number only when the catalogue is missing or holds it.
std::string device_from_words(const command_line &line, const household &known, const std::string &words);
u32 app_from_words(const command_line &line, const household &known, const std::string &words);
u32 class_from_words(const command_line &line, const std::string &words);

#endif
