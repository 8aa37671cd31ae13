// The use-time limits of the household's devices as the daemon has them (request 12), and changing one of them (request 11).
#ifndef HOME_DEVICE_LIMITS_H
#define HOME_DEVICE_LIMITS_H

#include "home/app_names.h"
#include "igd/igd_types.h"

#include <cjson/cJSON.h>

#include <stdint.h>

#include <map>
#include <string>

struct household;

constexpr int64_t limit_minutes_most = 1440;
// Of a limit that nobody gave minutes; one that is off may be stored with 0.
constexpr int64_t limit_minutes_usual = 60;

struct known_limit {
    bool on;
    int64_t minutes;
};
// By class. A device of another role than 1 has none.
using known_limits = std::map<u32, known_limit>;

// Asks the daemon for those of every device of role 1, and keeps them in the household by MAC.
void refresh_limits(household *home);

// The numbers of the catalogue's apps that a limit of the class counts, as many as the daemon takes. The caller frees it.
cJSON *apps_of_class(const app_names &apps, u32 class_type);
// Puts the value in place of the member, or adds it; the object owns it then.
void put_member(cJSON *object, const char *key, cJSON *value);

struct limit_change {
    std::string mac;
    u32 class_type;
    known_limit to;
    std::string who, from; // for the record of changes: account, address
};
// Writes all five classes, the other four as they were, and reads them back; the change is recorded. A limit that is switched
// on without apps gets all apps of its class. False when the daemon does not have it then.
bool change_limit(household *home, const limit_change &wanted);

#endif
