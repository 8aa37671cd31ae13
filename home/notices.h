// Notices: what tells others of an alert. Each way (webhook, command, MQTT) keeps the last alert that it is done with in the
// database, so that a restart neither loses one nor tells it again, and what waits needs no memory of its own.
#ifndef HOME_NOTICES_H
#define HOME_NOTICES_H

#include "common/guards.h"
#include "home/notice_settings.h"
#include "home/queries.h"

#include <string>

struct household;

// An alert older than this is late, as after a time without power or network: it is told, and says so.
constexpr int64_t notice_late_after = 600; // seconds
// One older than this is told to nobody.
constexpr int64_t notice_too_old_after = 86400;
// The most that wait; beyond it the oldest are given up.
constexpr int64_t notices_most = 200;

struct notice_counts {
    int64_t told = 0;
    int64_t failed = 0;  // given up after every try
    int64_t skipped = 0; // too old, or too many
};

struct notice_way {
    const char *name = "";
    const notice_kinds *kinds = nullptr;
    household *home = nullptr;
    int64_t done = 0; // row of the last alert told or given up
    notice_counts counts;
};

// Begins after the alerts that there are, or where it was. The way lives as long as the program.
void begin_way(notice_way *way, const char *name, const notice_kinds *kinds, household *home);
// Forgets where a way was that is off now: when it is on again, it begins with what comes then.
void forget_way(household *home, const char *name);
// The alert to tell next, passing over those that are not wanted or too old. False when there is none.
bool next_alert(notice_way *way, int64_t now, alert_row *found);
// Done with this alert; `count` is what became of it.
void end_alert(notice_way *way, int64_t alert, int64_t notice_counts::*count);

// {"kind":"limit","time":...,"late":false,"device":MAC,"name":...,"person":...,"text":"...", ...}
json_tree alert_json(household *home, const alert_row &alert, int64_t now);

// The ways that run a program for each alert: a webhook (curl) and the owner's command.
struct notices;
notices *begin_notices(household *home, const notice_settings &settings);
void end_notices(notices *all);
struct loop_part;
loop_part notices_part(notices *all);

#endif
