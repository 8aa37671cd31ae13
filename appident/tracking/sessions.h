// Sessions: how they open, grow, close and begin anew. All their arithmetic stands here. The lock is held.
//
// Each app of a device has a plain session (app_state and the fields without prefix). At most one app of a device also has the
// time-axis session (the fields that begin with time_axis): it is the app in the foreground, and pushes tell of this session.
//
// clang-format off
//   state               event                                becomes                    sent, in this order
//   plain not USING     starting hit                         both USING                 online, holder closed, status 1
//   plain USING         continuing hit, axis free            axis USING                 status 1, online
//   plain USING         starting hit, axis free              axis USING                 online, status 1
//   plain USING         a game's start, a non-game holds it  axis USING                 holder closed, online
//   axis USING          another app takes the axis           axis UNUSED                as closing_rules say
//   plain USING         three minutes without a hit          plain DISUSE, axis UNUSED  as closing_rules say
//   plain USING         device leaves, clock stepped back    plain DISUSE, axis UNUSED  as closing_rules say
//   both USING          day end                              the same, begun anew       status 0, status 1
//   plain HIT, DISUSE   day end                              the same, all else zero    nothing
// clang-format on
#ifndef APPIDENT_TRACKING_SESSIONS_H
#define APPIDENT_TRACKING_SESSIONS_H

#include "appident/model/records.h"
#include "common/sec_plg_common.h"

// Opens both sessions of an app with its first hit; the app id and the byte counters are the caller's.
void open_sessions(app_ident_record &app, const app_data &hit, u32 now);

// How an app whose session is open gets the time axis.
enum class axis_taken {
    free_axis,     // nobody held it: its alert counters start again
    from_non_game, // a game took it: they go on
};
void take_time_axis(app_ident_record &app, axis_taken how, u32 now);

// Counts a hit of an open session: both periods, and its minute of the window.
void add_app_hit_record(app_ident_record *app, app_data *ad);
// Lets an open session grow older without a hit, so that a silent minute becomes an empty one of the window.
void age_session(app_ident_record &app, u32 now);
// The window's three minutes are empty.
bool is_silent(const app_ident_record &app);

// Why a session closes.
enum class closing {
    new_app,      // an app's first session takes the time axis
    reopened_app, // an app's next session takes it
    game,         // a game whose session was open takes it
    silence,      // three minutes without a hit
    departure,    // the device leaves, or the clock stepped back
};

enum class ended_status { never, before_pushes, after_pushes };
enum class kept_end { computed, zero, now };

// What closing a time-axis session does besides what all do: the state becomes UNUSED; "offline" is pushed, and for a session
// that is not short also its history, after its end was computed and its sum has grown; the period becomes 0.
struct closing_rule {
    ended_status status;
    bool short_end_first; // of a short session: the "offline" push shows its own end; else the end of the session before
    kept_end end;         // what end time stays in the record
    bool short_wipes_sum; // a short session sets the app's time-axis sum of the day to 0
    bool clears_bytes;
    // Of closings that also close the plain session:
    bool clears_alerts; // alert counters of the app
    bool clears_rules;  // its rule list; a leaving device frees its lists itself
};

// In the order of the enumeration. They differ because the receivers of the pushes rely on each as it has always been.
// clang-format off
constexpr closing_rule closing_rules[] = {
    // status                     end 1st end kept            wipes  bytes  alerts rules
    {ended_status::before_pushes, true,  kept_end::computed, false, true,  false, false}, // new_app
    {ended_status::after_pushes,  true,  kept_end::computed, false, true,  false, false}, // reopened_app
    {ended_status::never,         false, kept_end::computed, false, false, false, false}, // game
    {ended_status::before_pushes, false, kept_end::zero,     true,  true,  false, true},  // silence
    {ended_status::before_pushes, false, kept_end::now,      false, true,  true,  false}, // departure
};
// clang-format on

// Closes the time-axis session of the app at the slot.
void close_time_axis(device_record *dev, int slot, closing why);
// Closes its time-axis session, if it has one, and its plain session: silence and departure.
void close_session(device_record *dev, int slot, closing why);

// Day end: an open session is closed and begins anew with the day's sums at zero; its time-axis part is armed as the device's
// delayed push, due in that minute of the hour (several of one device: the last wins).
enum class day_end { midnight, evening };
void restart_session_at_day_end(device_record *dev, int slot, day_end pass, u32 push_minute);
// Day end of an app without an open session: everything but its id and state goes back to zero.
void clear_session_at_day_end(app_ident_record &app);

#endif
