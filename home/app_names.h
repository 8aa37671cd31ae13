// Names and classes of apps, from the catalogue that the daemon uses:
//   {"data":[{"class_type":"1","appid":[1001,1002]}, ...],"names":{"1001":"Video"}}
#ifndef HOME_APP_NAMES_H
#define HOME_APP_NAMES_H

#include "igd/igd_types.h"

#include <stdint.h>

#include <map>
#include <string>

struct app_names {
    std::map<u32, std::string> names;
    std::map<u32, int> classes;
    std::string path;
    int64_t changed = 0; // modification time of the file read
};

// Reads the file when it is another one than before; one that cannot be read leaves what is known.
void refresh_app_names(app_names *known, const std::string &path);
// The name, or the number as text.
std::string app_name(const app_names &known, u32 app);
// 0 for an app that belongs to no class.
int app_class(const app_names &known, u32 app);

#endif
