// What a household does in a scenario: its devices, the apps it knows, and who uses what from when to when.
//
// All times are epoch seconds of the household's clock (UTC). In the file a time is "HH:MM" or "HH:MM:SS"; one that is earlier
// than the scenario's start belongs to the next day.
#ifndef SIMULATOR_SCENARIO_H
#define SIMULATOR_SCENARIO_H

#include "simulator/world/devices_and_apps.h"

// One app used on one device; traffic is seen every `every` seconds from `from` on, and last at `to`.
struct usage {
    int device;
    u32 app;
    moment from, to;
    int every;
    u32 up, down;           // bytes of each message
    std::vector<u32> rules; // the first one opens, all take turns afterwards
};

struct use_limit {
    u32 class_type;
    u32 minutes;
    bool on;
    std::vector<u32> apps;
};

enum event_kind {
    event_online,
    event_offline,
    event_role,    // number: the new role
    event_limits,  // limits: all five classes
    event_payment, // number: 300 to 302, flows, rules
    event_ask,     // what is the device doing now?
};

struct household_event {
    event_kind kind;
    moment at;
    int device;
    u32 number;
    u32 flows; // accounting flows of the payment app seen shortly before
    std::vector<u32> rules;
    std::vector<use_limit> limits;
};

struct scenario {
    std::string title;
    moment start, end;
    std::vector<app_entry> apps;
    std::vector<device_entry> devices;
    std::vector<usage> usages;
    std::vector<household_event> events;
};

// Reads a file; on failure says on standard error what is wrong with it and returns false.
bool read_scenario(const std::string &path, scenario *out);

const char *app_name(const scenario &household, u32 app);
// The index of the device with this MAC text, -1 for none.
int device_of_mac(const scenario &household, const std::string &mac);

// "HH:MM:SS".
std::string clock_text(moment when);

#endif
