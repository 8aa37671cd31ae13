#include "home/queries.h"

namespace {

alert_row read_alert(const statement &row)
{
    return {row.number(0), row.number(1), row.number(2), row.number(3), static_cast<u32>(row.number(4)),
            row.number(5), row.number(6), row.text(7)};
}

known_device read_device(const statement &row)
{
    return {row.number(0),       row.text(1),    row.text(2),   row.text(3), row.is_null(4) ? -1 : row.number(4),
            row.text(5),         row.number(6),  row.text(7),   row.text(8), row.number(9) != 0,
            row.number(10) != 0, row.number(11), row.number(12)};
}

#define DEVICE_ROWS                                                                                                            \
    "SELECT d.id,mac,d.name,name_from,role,role_from,person,coalesce(p.name,''),address,on_line,private_mac,first_seen,"       \
    "last_seen FROM device d LEFT JOIN person p ON p.id=person "
#define ALERT_COLUMNS "id,time,device,kind,app,class,amount,rules"

} // namespace

std::vector<known_device> list_devices(database *db)
{
    std::vector<known_device> all;
    statement row(db, DEVICE_ROWS "ORDER BY d.id");
    while (row.row())
        all.push_back(read_device(row));
    return all;
}

bool find_known_device(database *db, int64_t id, known_device *found)
{
    statement row(db, DEVICE_ROWS "WHERE d.id=?", id);
    if (!row.row())
        return false;
    *found = read_device(row);
    return true;
}

int64_t find_device(database *db, const std::string &mac)
{
    return number_of(db, 0, "SELECT id FROM device WHERE mac=?", mac);
}

std::vector<known_person> list_persons(database *db)
{
    std::vector<known_person> all;
    statement row(db, "SELECT id,name FROM person ORDER BY name");
    while (row.row())
        all.push_back({row.number(0), row.text(1)});
    return all;
}

std::vector<session> sessions_now(database *db)
{
    return open_sessions(db);
}

std::vector<use_row> use_between(database *db, int from, int to, int64_t device)
{
    std::vector<use_row> all;
    statement row(db,
                  "SELECT day,device,app,minutes,up,down FROM day_use WHERE day BETWEEN ?1 AND ?2 AND (?3=0 OR device=?3) AND "
                  "minutes>0 ORDER BY day,device,app",
                  from, to, device);
    while (row.row())
        all.push_back({static_cast<int>(row.number(0)), row.number(1), static_cast<u32>(row.number(2)), row.number(3),
                       row.number(4), row.number(5)});
    return all;
}

std::vector<alert_row> alerts_since(database *db, int64_t since, int64_t most, int64_t device)
{
    std::vector<alert_row> all;
    statement row(db, "SELECT " ALERT_COLUMNS " FROM alert WHERE time>=? AND (?2=0 OR device=?2) ORDER BY time,id LIMIT ?3",
                  since, device, most);
    while (row.row())
        all.push_back(read_alert(row));
    return all;
}

bool find_alert(database *db, int64_t id, alert_row *found)
{
    statement row(db, "SELECT " ALERT_COLUMNS " FROM alert WHERE id=?", id);
    if (!row.row())
        return false;
    *found = read_alert(row);
    return true;
}

bool find_alert_after(database *db, int64_t id, alert_row *found)
{
    statement row(db, "SELECT " ALERT_COLUMNS " FROM alert WHERE id>? ORDER BY id LIMIT 1", id);
    if (!row.row())
        return false;
    *found = read_alert(row);
    return true;
}

std::vector<gap_row> gaps_between(database *db, int64_t from, int64_t to)
{
    std::vector<gap_row> all;
    statement row(db, "SELECT start,end,lost,why FROM gap WHERE start<?2 AND end>=?1 AND why<>'before' ORDER BY start,id", from,
                  to);
    while (row.row())
        all.push_back({row.number(0), row.number(1), row.number(2), row.text(3)});
    return all;
}

std::vector<change_row> latest_changes(database *db, int64_t most)
{
    std::vector<change_row> all;
    statement row(db, "SELECT time,account,address,device,what,before,after FROM change ORDER BY id DESC LIMIT ?", most);
    while (row.row())
        all.push_back({row.number(0), row.text(1), row.text(2), row.text(3), row.text(4), row.text(5), row.text(6)});
    return all;
}

void add_change(history *of, const change_row &row)
{
    change(&of->db, "INSERT INTO change(time,account,address,device,what,before,after) VALUES(?,?,?,?,?,?,?)", row.time,
           row.account, row.address, row.device, row.what, row.before, row.after);
    of->db.commit_wanted = true;
}

int64_t daemon_since(database *db)
{
    return number_of(db, 0, "SELECT first_time FROM run ORDER BY first_time DESC LIMIT 1");
}

int64_t history_since(database *db)
{
    return number_of(db, 0,
                     "SELECT min(time) FROM (SELECT first_time AS time FROM run UNION ALL SELECT first_seen FROM device "
                     "WHERE first_seen>0)");
}

int64_t database_size(database *db)
{
    return number_of(db, 0, "PRAGMA page_count") * number_of(db, 0, "PRAGMA page_size");
}

const char *state_name(session_state state)
{
    constexpr const char *names[] = {"open", "reported", "presumed"};
    return names[state];
}
