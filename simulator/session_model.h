// The rules of sessions, reckoned for one device without the daemon: what a hit, silence, an absence and the day's end do.
//
// Written against the rules, not against the daemon's code; where the two differ, one of them is wrong. Minutes are started
// minutes; a session counts its started minutes less the last.
#ifndef SIMULATOR_SESSION_MODEL_H
#define SIMULATOR_SESSION_MODEL_H

#include "simulator/outcome.h"

struct app_model {
    u32 id = 0;
    // The plain session, and in which of the last three minutes up to `window_minute` something was heard of it.
    bool open = false;
    moment start = 0, ended = 0;
    u32 minutes = 0;
    u32 window_minute = 0;
    bool heard[3] = {};
    // The session on the device's time axis, which one app at a time holds.
    bool on_axis = false;
    moment axis_start = 0;
    u32 axis_minutes = 0;
    u32 day_minutes = 0; // of the day's closed sessions
    u32 eye_alerts = 0;
    bool daydayup_alerted = false;
};

struct limit_model {
    use_limit set;
    u32 alerted = 0;
};

struct device_model {
    int index = 0;
    bool tracked = false, active = false;
    int role = 0;
    std::vector<app_model> apps;
    std::vector<limit_model> limits;
    outcome delayed = {}; // subject 0: none
};

// Minutes begun between two moments.
u32 begun_minutes(moment from, moment to);
// The first limit of the class, null for none; whether it counts the app.
limit_model *limit_of_class(device_model &device, u32 class_type);
bool counts_app(const limit_model *limit, u32 app);

void model_hit(device_model &device, u32 app, bool starting, moment now, std::vector<outcome> &out);
// Ends the sessions that were silent for three minutes.
void model_silence(device_model &device, moment now, std::vector<outcome> &out);
// The device left: everything ends.
void model_absence(device_model &device, moment now, std::vector<outcome> &out);
// The passes at 23:00 and midnight, and the report of what they cut.
void model_day_end(device_model &device, moment now);
void model_delayed_report(device_model &device, moment now, std::vector<outcome> &out);

#endif
