#include "home/devices.h"

namespace {

void tell_change(history *of, int64_t device, int64_t time)
{
    if (sqlite3_changes(of->db.handle) > 0)
        add_fact(of, {fact_device, time, device, 0, 0, 0, ""});
}

} // namespace

int64_t device_row(history *of, const std::string &mac, int64_t time)
{
    constexpr int64_t worth_a_write = 3600;
    database *db = &of->db;
    int64_t id = 0, seen = 0;
    {
        statement read(db, "SELECT id,last_seen FROM device WHERE mac=?", mac);
        if (read.row()) {
            id = read.number(0);
            seen = read.number(1);
        }
    }
    if (id > 0) {
        if (time > seen + worth_a_write)
            change(db, "UPDATE device SET last_seen=?2 WHERE id=?1", id, time);
        return id;
    }
    if (number_of(db, 0, "SELECT count(*) FROM device") >= devices_most) {
        count(of, count_too_many);
        return 0;
    }
    if (!change(db, "INSERT INTO device(mac,first_seen,last_seen) VALUES(?1,?2,?2)", mac, time))
        return 0;
    id = sqlite3_last_insert_rowid(db->handle);
    tell_change(of, id, time);
    return id;
}

void note_name(history *of, int64_t device, const std::string &name)
{
    if (name.empty())
        return;
    change(&of->db, "UPDATE device SET name=?2,name_from='push' WHERE id=?1 AND name_from IN('none','push') AND name<>?2",
           device, name);
    tell_change(of, device, 0);
}

void note_role(history *of, int64_t device, int64_t role)
{
    change(&of->db, "UPDATE device SET role=?2 WHERE id=?1 AND role IS NOT ?2", device, role);
    tell_change(of, device, 0);
}

void note_news(history *of, const device_news &news, int64_t time)
{
    int64_t id = device_row(of, news.mac, time);
    if (id == 0)
        return;
    change(&of->db,
           "UPDATE device SET name=?2,name_from=?3,role=?4,role_from=?5,address=?6,on_line=?7,private_mac=?8,"
           "last_seen=max(last_seen,?9) WHERE id=?1 AND (name<>?2 OR name_from<>?3 OR role IS NOT ?4 OR role_from<>?5 OR "
           "address<>?6 OR on_line<>?7 OR private_mac<>?8 OR last_seen+3600<?9)",
           id, news.name, news.name_from, news.role, news.role_from, news.address, news.on_line, news.private_mac,
           news.last_seen);
    tell_change(of, id, time);
}

bool forget_device(history *of, const std::string &mac)
{
    database *db = &of->db;
    int64_t id = number_of(db, 0, "SELECT id FROM device WHERE mac=?", mac);
    if (id == 0)
        return false;
    // What a child table holds goes with the device; the record of changes names it by its MAC.
    bool gone = change(db, "DELETE FROM change WHERE device=?", mac) && change(db, "DELETE FROM device WHERE id=?", id) &&
                commit_batch(db);
    // The freed pages and the log still hold its bytes.
    return gone && sqlite3_exec(db->handle, "VACUUM;PRAGMA wal_checkpoint(TRUNCATE)", nullptr, nullptr, nullptr) == SQLITE_OK;
}
