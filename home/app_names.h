// Names and classes of apps, from the catalogues that the daemon uses, the installed one and the owner's additions:
//   {"data":[{"class_type":"1","appid":[1001,1002]}, ...],"names":{"1001":"Video"}}
#ifndef HOME_APP_NAMES_H
#define HOME_APP_NAMES_H

#include "igd/igd_types.h"

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

struct app_names {
    std::map<u32, std::string> names;
    std::map<u32, int> classes;
    std::vector<int64_t> changed; // modification times of the files read, nanoseconds; 0 for one that is not there
};

// Reads the files when one of them changed; what a later one says of an app holds. One that cannot be read leaves what is
// known.
void refresh_app_names(app_names *known, const std::vector<std::string> &paths);
// The name, or the number as text.
std::string app_name(const app_names &known, u32 app);
// 0 for an app that belongs to no class.
int app_class(const app_names &known, u32 app);

#endif
