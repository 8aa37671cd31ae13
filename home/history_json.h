// Rows of the history as JSON objects, for the report and for the page.
//
// Rows of devices that `known_names` does not hold are left out: so a child is told of its own devices only.
#ifndef HOME_HISTORY_JSON_H
#define HOME_HISTORY_JSON_H

#include "common/guards.h"
#include "home/app_names.h"
#include "home/queries.h"

#include <map>

struct known_names {
    std::map<int64_t, known_device> devices; // by row
    const app_names *apps;
};
known_names all_names(database *db, const app_names &apps);

void add_number(cJSON *to, const char *key, int64_t value);
void add_text(cJSON *to, const char *key, const std::string &value);
// A new object at the list's end.
cJSON *add_item(cJSON *list);
// "app", "app_name" and "class", the class of limits that it counts towards.
void add_app(cJSON *to, const known_names &known, u32 app);

// Each adds an array to the object, named as its function is. Times are epoch seconds, from `from` to before `to`; days
// numbers, both included.
void add_sessions(cJSON *root, database *db, const known_names &known, int64_t from, int64_t to);
void add_days(cJSON *root, database *db, const known_names &known, int from, int to);
// The latest `most`, the oldest of them first.
void add_alerts(cJSON *root, database *db, const known_names &known, int64_t from, int64_t to, size_t most);
void add_gaps(cJSON *root, database *db, int64_t from, int64_t to);

#endif
