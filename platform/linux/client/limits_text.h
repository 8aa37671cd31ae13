// The text that stores a device's use-time limits: always all five classes, the unset ones switched off.
//
// The daemon's alerts walk as many entries as the file has limit objects, wherever the classes sit, so a file with fewer than
// five could leave a class unwatched.
#ifndef PLATFORM_LINUX_CLIENT_LIMITS_TEXT_H
#define PLATFORM_LINUX_CLIENT_LIMITS_TEXT_H

#include "common/guards.h"
#include "igd/igd_types.h"

#include <string>

constexpr u32 most_apps_of_a_class = 256;

// The limit object of a class in an array of them, or null.
cJSON *find_limit(const cJSON *limits, u32 class_type);
// What is wrong with an array of limits, or "" when nothing is.
std::string limits_fault(const cJSON *limits);
// {"device":...,"data":[...]}: of each class the object of `wanted` (may be null), else one that is off.
json_tree compose_limits(const std::string &device, const cJSON *wanted);
// Whether `stored` holds the five classes of `sent` as sent, and no more.
bool limits_equal(const cJSON *sent, const cJSON *stored);

#endif
