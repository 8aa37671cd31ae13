// The history as the program holds it: the database, the place in the daemon's numbering, counters, and who is told what.
#ifndef HOME_HISTORY_H
#define HOME_HISTORY_H

#include "home/database.h"
#include "home/facts.h"
#include "home/spool_reader.h"

#include <array>
#include <string>
#include <vector>

// What is counted, over the life of the database. The names are in history.cpp; metrics and the technician's page show them.
enum home_count {
    count_lines,        // lines of the spool that were taken
    count_lost,         // numbers that never came
    count_repeated,     // lines that had been taken before
    count_too_long,     // and these were passed over: longer than a line can be
    count_not_json,     // no JSON
    count_wrong_shape,  // no "time", "code" or "data" where they are due
    count_unknown_code, // a push of a kind that is not known
    count_wrong_device, // no MAC where one is due
    count_wrong_number, // a number missing, no number, or beyond what it may be
    count_too_many,     // a device beyond the most that are kept
    count_end,
};
const char *count_name(home_count which);

// Where we are in what the daemon numbers.
struct line_place {
    std::string run;       // of the daemon that wrote last, "" for none
    int64_t last = 0;      // its last number taken
    int64_t last_time = 0; // the time of the last line taken in order, 0 for none
    bool broken = false;   // lines may be missing after it
    spool_place spool;     // of the spool that is followed
};

struct history {
    database db;
    line_place place;
    std::array<int64_t, count_end> counts = {};
    std::vector<fact_listener> listeners;
    std::vector<fact> untold; // since the last tell_facts
    bool importing = false;   // the lines are those of a file that may be older than what was followed
};

// Opens the database and reads where it stands. False with the reason.
bool open_history(history *of, const std::string &path, const database_options &options, std::string *why);
void close_history(history *of);
// After a batch was taken back: reads again what the database says.
void reload_history(history *of);

void count(history *of, home_count which, int64_t by = 1);

// Keeps a fact for tell_facts; for facts that nobody listens to, nothing is kept.
void add_fact(history *of, fact news);
// Tells what was kept, to every listener in turn. Commits first when an alert is among it; when that fails, nothing is told.
void tell_facts(history *of);

// Values of the table meta.
std::string meta_text(database *db, const char *key);
int64_t meta_number(database *db, const char *key, int64_t otherwise);
bool set_meta(database *db, const char *key, const std::string &value);
bool set_meta(database *db, const char *key, int64_t value);

#endif
