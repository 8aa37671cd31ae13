#include "home/push_rules.h"

#include "home/days.h"
#include "home/devices.h"
#include "home/sessions.h"

#include <algorithm>
#include <string.h>

namespace {

constexpr double most_app = 65535;
constexpr double most_time = 4294967295.0;
constexpr int64_t most_minutes_unchecked = 24 * 60; // where no clock says how long it can have been
// Two lines a minute apart, as the minute report comes; its period is at least 60 s and stretches under load.
constexpr int64_t minute_least = 45, minute_most = 95;
// How long after its last counted minute a session is told: three silent minutes, and what the daemon takes to notice.
constexpr int64_t told_within = 900;
// The same for what was cut at the day's end and put off, for up to 50 minutes.
constexpr int64_t put_off_within = 4200;
constexpr int64_t day_end_within = 600;

// Never more minutes than have passed since the start, whatever the daemon's clock did.
int64_t passed_minutes(const session &one, int64_t told, int64_t time)
{
    // A clock that went back ends all sessions, whose last minute may be newer than what was heard of them.
    int64_t now = time < one.heard ? one.heard + 120 : time;
    if (now < one.start)
        return std::min(told, most_minutes_unchecked);
    return std::max<int64_t>(0, std::min(told, (now - one.start - one.jumped) / 60));
}

session find_or_begin(history *of, const use_told &told)
{
    session one;
    if (!find_session(&of->db, told.device, told.start, told.app, &one)) {
        one.device = told.device;
        one.start = told.start;
        one.app = told.app;
    }
    return one;
}

// A device has one app in use at a time: a newer one ends the others, whose own end may still be told.
void end_others(history *of, const use_told &newer, bool same_app_only)
{
    for (const session &one : open_sessions_of(&of->db, newer.device))
        if (one.start < newer.start && (one.app == newer.app || !same_app_only))
            presume_ended(of, one);
}

void take_offline(history *of, const use_told &told, int64_t time)
{
    end_others(of, told, true);
    session one = find_or_begin(of, told);
    if (one.told)
        return;
    // Its "endtime" may be that of an older session.
    one.minutes = passed_minutes(one, told.minutes, time);
    one.state = session_reported;
    one.heard = std::max(one.heard, time);
    store_session(of, one);
}

struct report {
    int64_t device;
    u32 app;
    int64_t minutes, up, down;
};

void store_report(history *of, session one, const report &told, int64_t time)
{
    one.minutes = passed_minutes(one, told.minutes, time);
    one.up = told.up;
    one.down = told.down;
    one.state = session_reported;
    one.told = time;
    store_session(of, one);
}

// Of the sessions that are over, the one whose minutes are as told, or the latest that may be meant.
bool pick_ended(const std::vector<session> &untold, const report &told, int64_t time, session *picked)
{
    for (const session &one : untold)
        if (one.state == session_reported && one.minutes == passed_minutes(one, told.minutes, time)) {
            *picked = one;
            return true;
        }
    for (const session &one : untold) {
        // A device that lost its role has its session told without an end.
        bool may_be = one.state == session_open || time - one.end <= told_within;
        if (may_be && one.start + told.minutes * 60 <= std::max(time, one.heard) + 60) {
            *picked = one;
            return true;
        }
    }
    return false;
}

// What was cut at the day's end: closed meanwhile by the app's next session, or still open as that one has not been told yet.
bool pick_cut(const std::vector<session> &untold, const report &told, int64_t time, session *picked)
{
    for (const session &one : untold) {
        int64_t since = time - (one.start + told.minutes * 60);
        int64_t within = one.state == session_open ? day_end_within : put_off_within;
        if (one.state != session_reported && one.minutes <= told.minutes && since >= 0 && since <= within) {
            *picked = one;
            return true;
        }
    }
    return false;
}

// Of a device with role 0 only the change of status told the start.
bool pick_begun(history *of, const report &told, int64_t time, session *picked)
{
    int64_t start = number_of(&of->db, 0, "SELECT start FROM begun WHERE device=? AND app=?", told.device, told.app);
    if (start == 0 || start + told.minutes * 60 > time + 60 || find_session(&of->db, told.device, start, told.app, picked))
        return false;
    picked->start = start;
    picked->heard = std::max(time, start + told.minutes * 60);
    return true;
}

// Nothing is known but how long it was: it is put before its report, or before the day's end that it was put off from.
session guess(history *of, const report &told, int64_t time, bool put_off)
{
    int64_t end = time;
    if (put_off) {
        int day = day_of(time);
        int64_t last_hour = day_end(day) - 3600;
        end = time >= last_hour ? last_hour : day_start(day);
    }
    session one;
    one.start = std::max(end - told.minutes * 60, end_before(&of->db, told.device, end - told.minutes * 60));
    session taken;
    while (find_session(&of->db, told.device, one.start, told.app, &taken))
        ++one.start;
    // Where sessions lie close, it seems to end later than it was told.
    one.heard = std::max(time, one.start + told.minutes * 60);
    return one;
}

// A line without a number that was taken before.
bool is_repeated(history *of, const report &told, int64_t time)
{
    return number_of(&of->db, 0, "SELECT 1 FROM session WHERE device=? AND app=? AND told=? AND up=? AND down=? AND start>=?",
                     told.device, told.app, time, told.up, told.down, time - 86400 - told.minutes * 60) > 0;
}

bool read_report(history *of, const push_line &line, const cJSON *one, report *told)
{
    std::string mac;
    int64_t app = 0, seconds = 0;
    if (!read_mac(one, "endmac", &mac)) {
        count(of, count_wrong_device);
        return false;
    }
    if (!read_count(one, "appid", most_app, &app) || app == 0 || !read_count(one, "sumtime", most_time, &seconds) ||
        !read_count(one, "up_traffic", 9e15, &told->up) || !read_count(one, "down_traffic", 9e15, &told->down)) {
        count(of, count_wrong_number);
        return false;
    }
    told->device = device_row(of, mac, line.time);
    told->app = static_cast<u32>(app);
    told->minutes = seconds / 60;
    if (told->device)
        note_name(of, told->device, read_words(one, "alias", device_name_most));
    return told->device && told->minutes > 0;
}

} // namespace

void take_use(history *of, const use_told &told, int64_t time)
{
    if (told.device == 0)
        return;
    session one = find_or_begin(of, told);
    // A line of before, or one that came after the end.
    if (one.told || one.state == session_reported)
        return;
    end_others(of, told, false);
    int64_t since = time - one.heard;
    // What is heard between two minute reports is none of them.
    if (since >= minute_least) {
        one.steady = one.minutes > 0 && since <= minute_most;
        one.heard = time;
    }
    one.minutes = std::max(one.minutes, passed_minutes(one, told.minutes, time));
    one.state = session_open;
    store_session(of, one);
}

void take_presence(history *of, const push_line &line, const cJSON *one)
{
    std::string mac;
    int64_t app = 0, role = 0;
    use_told told = {};
    if (!read_mac(one, "endmac", &mac)) {
        count(of, count_wrong_device);
        return;
    }
    const char *status = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(one, "status"));
    bool offline = status && strcmp(status, "offline") == 0;
    if (!read_count(one, "appid", most_app, &app) || app == 0 || !read_count(one, "starttime", most_time, &told.start) ||
        told.start == 0 || !read_count(one, "sumtime", most_time, &told.minutes)) {
        count(of, count_wrong_number);
        return;
    }
    if (!offline && (!status || (strcmp(status, "online") != 0 && strcmp(status, "using") != 0))) {
        count(of, count_wrong_shape);
        return;
    }
    told.device = device_row(of, mac, line.time);
    told.app = static_cast<u32>(app);
    if (told.device == 0)
        return;
    if (read_count(one, "role", 255, &role))
        note_role(of, told.device, role);
    if (offline)
        take_offline(of, told, line.time);
    else
        take_use(of, told, line.time);
}

void take_history(history *of, const push_line &line, const cJSON *one)
{
    report told = {};
    if (!read_report(of, line, one, &told) || (line.number == 0 && is_repeated(of, told, line.time)))
        return;
    std::vector<session> untold = untold_sessions(&of->db, told.device, told.app);
    bool put_off = line.occur_time > 0;
    session picked;
    if (!(put_off ? pick_cut(untold, told, line.time, &picked) : pick_ended(untold, told, line.time, &picked)) &&
        (put_off || !pick_begun(of, told, line.time, &picked)))
        picked = guess(of, told, line.time, put_off);
    picked.device = told.device;
    picked.app = told.app;
    store_report(of, picked, told, line.time);
}

void take_status(history *of, const push_line &line, const cJSON *one)
{
    std::string mac;
    int64_t app = 0, status = 0;
    if (!read_mac(one, "mac", &mac)) {
        count(of, count_wrong_device);
        return;
    }
    if (!read_count(one, "app_id", most_app, &app) || !read_count(one, "app_status", 255, &status)) {
        count(of, count_wrong_number);
        return;
    }
    // Only what begins is of use, and the moment is the line's: its own stamp may be that of a longer session. At 23:00 it
    // comes again every three seconds, with each restart of the session.
    if (status != 1 || app == 0)
        return;
    int64_t device = device_row(of, mac, line.time);
    if (device)
        change(&of->db, "INSERT INTO begun VALUES(?1,?2,?3) ON CONFLICT(device,app) DO UPDATE SET start=?3", device, app,
               line.time);
}
