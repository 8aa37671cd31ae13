// Names for people: of apps from the catalogue, of devices from the roster. Both files may be missing.
#ifndef APPIDENTCTL_NAMES_H
#define APPIDENTCTL_NAMES_H

#include "common/guards.h"
#include "igd/igd_types.h"
#include "tools/appidentctl/places.h"

#include <map>
#include <string>
#include <vector>

struct known_device {
    std::string device; // MAC text
    std::string name;   // may be empty
    int role;
    bool online;
};

struct names {
    std::map<u32, std::string> apps;
    bool roster_found = false;
    std::vector<known_device> devices;
};

names read_names(const places &where);
// "101 Video", or the number alone.
std::string app_label(const names &known, u32 app_id);
// Null when the roster does not hold the device.
const known_device *find_device(const names &known, const std::string &device);
// "AA-BB-CC-DD-EE-FF  Ann's phone", or the MAC alone.
std::string device_label(const names &known, const std::string &device);

// The whole file; false when it cannot be read. "-" is standard input.
bool read_file(const std::string &path, std::string *text);
// A parsed tree, or null.
json_tree read_json(const std::string &path);
// A member's text, or "" when it is missing or no text.
std::string json_text(const cJSON *object, const char *key);
// A member's number, or `otherwise`; a number within a text counts, as pushes carry them so.
double json_number(const cJSON *object, const char *key, double otherwise);

#endif
