#include "home/sessions.h"

#include "home/days.h"

#include <algorithm>

namespace {

#define SESSION_COLUMNS "device,start,app,end,minutes,up,down,state,heard,steady,jumped,told"

session read_session(const statement &row)
{
    session one;
    one.device = row.number(0);
    one.start = row.number(1);
    one.app = static_cast<u32>(row.number(2));
    one.end = row.number(3);
    one.minutes = row.number(4);
    one.up = row.number(5);
    one.down = row.number(6);
    one.state = static_cast<session_state>(row.number(7));
    one.heard = row.number(8);
    one.steady = row.number(9);
    one.jumped = row.number(10);
    one.told = row.number(11);
    one.stored = true;
    return one;
}

std::vector<session> read_sessions(statement &rows)
{
    std::vector<session> all;
    while (rows.row())
        all.push_back(read_session(rows));
    return all;
}

// Adds what the session gives to its days, or takes it away.
void add_shares(database *db, const session &one, int sign)
{
    for (const day_share &share : shares_of(one))
        change(db,
               "INSERT INTO day_use VALUES(?1,?2,?3,?4,?5,?6) ON CONFLICT(day,device,app) DO UPDATE SET "
               "minutes=max(0,minutes+?4),up=max(0,up+?5),down=max(0,down+?6)",
               share.day, one.device, one.app, sign * share.minutes, sign * share.up, sign * share.down);
}

bool same_shares(const session &one, const session &other)
{
    return one.minutes == other.minutes && one.up == other.up && one.down == other.down;
}

// The neighbours' ends: a clock that went back may let a session begin within an older one, or end in a newer one.
void keep_apart(database *db, session *one)
{
    int64_t next = number_of(db, one->end, "SELECT min(start) FROM session WHERE start>?2 AND start<?3 AND device=?1",
                             one->device, one->start, one->end);
    one->end = std::min(one->end, next);
    statement before(
        db, "SELECT start,app,end FROM session WHERE start<?2 AND start>?2-?3 AND device=?1 ORDER BY start DESC LIMIT 1",
        one->device, one->start, session_longest);
    if (before.row() && before.number(2) > one->start)
        change(db, "UPDATE session SET end=?4 WHERE device=?1 AND start=?2 AND app=?3", one->device, before.number(0),
               before.number(1), one->start);
}

void write_session(database *db, const session &one)
{
    change(db,
           "INSERT INTO session(" SESSION_COLUMNS ") VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9,?10,?11,?12) "
           "ON CONFLICT(start,device,app) DO UPDATE SET "
           "end=?4,minutes=?5,up=?6,down=?7,state=?8,heard=?9,steady=?10,jumped=?11,told=?12",
           one.device, one.start, one.app, one.end, one.minutes, one.up, one.down, static_cast<int>(one.state), one.heard,
           one.steady, one.jumped, one.told);
}

} // namespace

bool find_session(database *db, int64_t device, int64_t start, u32 app, session *found)
{
    statement read(db, "SELECT " SESSION_COLUMNS " FROM session WHERE device=? AND start=? AND app=?", device, start, app);
    if (!read.row())
        return false;
    *found = read_session(read);
    return true;
}

// The planner would rather walk through all that a device ever did.
std::vector<session> untold_sessions(database *db, int64_t device, u32 app)
{
    constexpr int looked_at = 20;
    statement rows(db,
                   "SELECT " SESSION_COLUMNS " FROM session INDEXED BY session_untold WHERE told=0 AND device=? AND app=? "
                   "ORDER BY start DESC LIMIT ?",
                   device, app, looked_at);
    return read_sessions(rows);
}

std::vector<session> open_sessions(database *db)
{
    statement rows(db, "SELECT " SESSION_COLUMNS " FROM session INDEXED BY session_untold WHERE told=0 AND state=0");
    return read_sessions(rows);
}

std::vector<session> open_sessions_of(database *db, int64_t device)
{
    statement rows(
        db, "SELECT " SESSION_COLUMNS " FROM session INDEXED BY session_untold WHERE told=0 AND state=0 AND device=?", device);
    return read_sessions(rows);
}

std::vector<session> sessions_between(database *db, int64_t from, int64_t to, int64_t device)
{
    statement rows(db,
                   "SELECT " SESSION_COLUMNS " FROM session WHERE start>?1-?4 AND start<?2 AND (?3=0 OR device=?3) AND "
                   "(end>?1 OR start>=?1) ORDER BY device,start,app",
                   from, to, device, session_longest);
    return read_sessions(rows);
}

int64_t end_before(database *db, int64_t device, int64_t start)
{
    return number_of(db, 0, "SELECT end FROM session WHERE start<=?2 AND start>?2-?3 AND device=?1 ORDER BY start DESC LIMIT 1",
                     device, start, session_longest);
}

std::vector<day_share> shares_of(const session &of)
{
    std::vector<day_share> shares;
    int64_t left = of.minutes, up = of.up, down = of.down, from = of.start;
    while (left > 0) {
        int day = day_of(from);
        int64_t until_midnight = (day_end(day) - from + 59) / 60;
        int64_t minutes = std::min(left, std::max<int64_t>(until_midnight, 1));
        day_share share = {day, minutes, up, down};
        if (minutes < left) {
            share.up = static_cast<int64_t>(static_cast<double>(of.up) * static_cast<double>(minutes) /
                                            static_cast<double>(of.minutes));
            share.down = static_cast<int64_t>(static_cast<double>(of.down) * static_cast<double>(minutes) /
                                              static_cast<double>(of.minutes));
        }
        shares.push_back(share);
        left -= minutes;
        up -= share.up;
        down -= share.down;
        from += minutes * 60;
    }
    return shares;
}

void store_session(history *of, session now)
{
    database *db = &of->db;
    session before;
    before.device = now.device;
    bool known = find_session(db, now.device, now.start, now.app, &before);
    bool kept = now.state == session_open || now.minutes > 0;
    now.end = now.start + now.minutes * 60;
    if (!known || !same_shares(before, now) || !kept) {
        add_shares(db, before, -1);
        if (kept)
            add_shares(db, now, 1);
    }
    if (kept) {
        keep_apart(db, &now);
        write_session(db, now);
    } else if (known) {
        change(db, "DELETE FROM session WHERE device=? AND start=? AND app=?", now.device, now.start, now.app);
    }
    fact news = {fact_session, std::max(now.heard, now.told), now.device, now.start, now.app, 0, ""};
    add_fact(of, news);
}

void presume_ended(history *of, session ended)
{
    ended.state = session_presumed;
    store_session(of, ended);
}
