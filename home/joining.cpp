#include "home/joining.h"

#include "home/devices.h"
#include "home/line_numbers.h"
#include "home/push_rules.h"
#include "home/sessions.h"

#include <string.h>

namespace {

// "using" comes each minute, a session without a whole minute ends within four: what is silent for longer has ended unnoticed.
constexpr int64_t silence_most = 600;
// The daemon says each minute what is in use, so that a much longer pause in its lines is its clock jumping, or the box asleep.
constexpr int64_t pause_most = 300;
constexpr int64_t report_late_most = 100;
constexpr int64_t report_period = 60;

struct push_kind {
    int code;
    push_rule take;
};
constexpr push_kind kinds[] = {
    {0, take_status},   {1008, take_history},   {1012, take_payment},  {1015, take_limit},
    {1021, take_break}, {1022, take_first_use}, {1023, take_presence},
};

void take_data(history *of, const push_line &line)
{
    for (const push_kind &kind : kinds) {
        if (kind.code != line.code)
            continue;
        if (cJSON_IsObject(line.data)) {
            kind.take(of, line, line.data);
        } else if (cJSON_IsArray(line.data)) {
            const cJSON *one = nullptr;
            cJSON_ArrayForEach(one, line.data) {
                kind.take(of, line, one);
            }
        } else {
            count(of, count_wrong_shape);
        }
        return;
    }
    count(of, count_unknown_code);
}

// The time since the last line, of which a minute at most has really passed, is no use of anything.
void note_jump(history *of, int64_t time)
{
    int64_t last = of->place.last_time;
    bool found = false;
    for (session &one : open_sessions(&of->db)) {
        if (!one.steady || last - one.heard > report_late_most)
            continue;
        one.jumped += time - last - report_period;
        store_session(of, one);
        found = true;
    }
    if (found)
        add_gap(of, {last, time, 0, "clock", "", 0, 0});
}

void end_all_sessions(history *of)
{
    for (const session &one : open_sessions(&of->db))
        presume_ended(of, one);
}

void take_checked_line(history *of, const push_line &line)
{
    line_order order = take_number(of, line);
    if (order == line_repeated) {
        count(of, count_repeated);
        return;
    }
    count(of, count_lines);
    int64_t last = of->place.last_time;
    if (order == line_restarts)
        end_all_sessions(of);
    if (order == line_follows && !of->place.broken && last > 0 && line.time - last > pause_most)
        note_jump(of, line.time);
    if (order != line_late) {
        if (line.time / report_period != last / report_period)
            end_silent_sessions(of, line.time);
        of->place.last_time = line.time;
        of->place.broken = false;
        // The place belongs to the batch of the line's facts, also when it brings none.
        begin_batch(&of->db);
    }
    take_data(of, line);
}

} // namespace

void take_line(history *of, const char *text, size_t length)
{
    push_line line;
    home_count why;
    bool good = read_push_line(text, length, &line, &why);
    if (!good) {
        count(of, why);
        // After a crash half a line may stand before a whole one.
        const char *again = why == count_not_json && length > 1 ? strstr(text + 1, "{\"run\":\"") : nullptr;
        size_t rest = again ? length - static_cast<size_t>(again - text) : 0;
        line = push_line();
        if (!again || !read_push_line(again, rest, &line, &why))
            return;
        text = again;
        length = rest;
    }
    take_checked_line(of, line);
    add_fact(of, {fact_line, line.time, 0, 0, 0, 0, std::string(text, length)});
}

void pass_over_long_line(history *of)
{
    count(of, count_too_long);
}

void take_now(history *of, const std::vector<std::string> &asked, const std::vector<use_now> &in_use, int64_t time)
{
    for (const use_now &one : in_use)
        take_use(of, {device_row(of, one.mac, time), one.app, one.start, one.minutes}, time);
    for (const std::string &mac : asked) {
        int64_t device = number_of(&of->db, 0, "SELECT id FROM device WHERE mac=?", mac);
        for (const session &open : open_sessions_of(&of->db, device)) {
            bool listed = false;
            for (const use_now &one : in_use)
                listed = listed || (one.mac == mac && one.app == open.app && one.start == open.start);
            // Its own end may stand in the spool, unread yet; it will be taken.
            if (!listed && open.heard < time)
                presume_ended(of, open);
        }
    }
}

void end_silent_sessions(history *of, int64_t time)
{
    for (const session &one : open_sessions(&of->db))
        if (time - one.heard > silence_most)
            presume_ended(of, one);
}
