// Opening, closing and restarting of plain and time-axis sessions. The lock is held.
//
// A session's last started minute is never counted, on purpose: that a session is over is only known three empty minutes later,
// and the minute of its last hit is the first of those. So a session of two minutes or more ends at start + period * 60 - 60
// and adds period - 1 to its sum; a shorter one adds nothing and sends no history.
//
// Sessions close in four situations whose end times, sums, resets and order of status and pushes differ, all on purpose. They
// share the arithmetic here and are otherwise told apart by name. `dev` is the device, `slot` the app's place in it.
#ifndef APPIDENT_TRACKING_SESSIONS_H
#define APPIDENT_TRACKING_SESSIONS_H

#include "appident/model/records.h"
#include "common/sec_plg_common.h"

// Opens both sessions of an app with its first hit; the app id and the byte counters are the caller's.
void open_sessions(app_ident_record &app, const app_data &hit, u32 now);

// How an app whose session is open comes by the time axis.
enum class axis_taken {
    free_axis,     // nobody held it: its alert counters start again
    from_non_game, // a game took it: they go on
};
void take_time_axis(app_ident_record &app, axis_taken how, u32 now);

// Who pushes the app at the slot off the time axis.
enum class axis_lost_to {
    new_app,      // an app's first session: status 0 before the pushes
    reopened_app, // an app's next session: status 0 after the pushes
    game,         // a game that was open already: no status, byte counters kept, a short session's end noted after its push
};
void close_time_axis_taken_over(device_record *dev, int slot, axis_lost_to whom);

// Three minutes without a hit. The app's time-axis sum is wiped when its time-axis session was a short one.
void close_silent_session(device_record *dev, int slot);

// The device leaves, or the clock stepped back: the pushes see the computed end, the record keeps the present time. Alert
// counters start again; the rule list is the caller's.
void close_session_at_once(device_record *dev, int slot);

// Day end: an open session is closed and begins anew with the day's sums at zero; its time-axis part is armed as the device's
// delayed push, due in that minute of the hour (several of one device: the last wins).
enum class day_end { midnight, evening };
void restart_session_at_day_end(device_record *dev, int slot, day_end pass, u32 push_minute);
// Day end of an app without an open session: everything but its id and state goes back to zero.
void clear_session_at_day_end(app_ident_record &app);

// The window of three minutes: moves it to the n-th started minute (n >= 4) when that is ahead.
void step_minute_window(app_ident_record &app, u32 minute);

#endif
