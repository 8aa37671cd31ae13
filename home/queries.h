// What the page, metrics and reports ask of the history. All times are epoch seconds, days numbers such as 20261122, `device` a
// row of the table device with 0 for all of them.
//
// A text comes as it was stored: names are whatever devices call themselves.
#ifndef HOME_QUERIES_H
#define HOME_QUERIES_H

#include "home/database.h"
#include "home/sessions.h"

#include <string>
#include <vector>

struct known_device {
    int64_t id;
    std::string mac, name;
    std::string name_from; // "person", "lease", "push" or "none"
    int64_t role;          // -1: not known
    std::string role_from; // "person", "default" or "": told by a push
    int64_t person;        // row, 0 for none
    std::string person_name;
    std::string address;
    bool on_line, private_mac;
    int64_t first_seen, last_seen;
};
std::vector<known_device> list_devices(database *db);
bool find_known_device(database *db, int64_t id, known_device *found);
// 0 for a MAC that is not known.
int64_t find_device(database *db, const std::string &mac);

struct known_person {
    int64_t id;
    std::string name;
};
std::vector<known_person> list_persons(database *db);

// In use, as far as is known; those in their first minute too.
std::vector<session> sessions_now(database *db);

struct use_row {
    int day;
    int64_t device;
    u32 app;
    int64_t minutes, up, down;
};
// Sums of the days `from` to `to`, both included, by day, device and app. Running sessions count with their whole minutes.
std::vector<use_row> use_between(database *db, int from, int to, int64_t device = 0);

struct alert_row {
    int64_t id, time, device;
    int64_t kind; // alert_kind
    u32 app;      // 0 for none
    int64_t category, amount;
    std::string rules;
};
// Alerts from the time on, the oldest first, `most` of them at most.
std::vector<alert_row> alerts_since(database *db, int64_t since, int64_t most, int64_t device = 0);
bool find_alert(database *db, int64_t id, alert_row *found);
// The one with the next higher row.
bool find_alert_after(database *db, int64_t id, alert_row *found);

struct gap_row {
    int64_t start, end;
    int64_t lost;    // lines; -1: unknown how many
    std::string why; // "lost", "restart" of the daemon, "clock" jumped forward
};
// What the daemon said before the history begins is no gap.
std::vector<gap_row> gaps_between(database *db, int64_t from, int64_t to);

struct change_row {
    int64_t time;
    std::string account, address, device, what, before, after;
};
// The latest first.
std::vector<change_row> latest_changes(database *db, int64_t most);
// Who changed what; committed at once.
void add_change(history *of, const change_row &row);

// When the daemon that wrote the last line was first heard of, 0 when its lines have no numbers: its own sums began anew then.
int64_t daemon_since(database *db);
// When the oldest that is known of was heard; 0 for nothing.
int64_t history_since(database *db);
// Bytes of the database's pages.
int64_t database_size(database *db);
const char *state_name(session_state state);

#endif
