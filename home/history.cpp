#include "home/history.h"

namespace {

constexpr const char *count_keys[] = {
    "count.lines",       "count.lost",         "count.repeated",     "count.too_long",     "count.not_json",
    "count.wrong_shape", "count.unknown_code", "count.wrong_device", "count.wrong_number", "count.too_many_devices"};
static_assert(sizeof(count_keys) / sizeof(*count_keys) == count_end, "a key for each count");

void write_place(void *context)
{
    history *of = static_cast<history *>(context);
    set_meta(&of->db, "run", of->place.run);
    set_meta(&of->db, "seq", of->place.last);
    set_meta(&of->db, "last_time", of->place.last_time);
    set_meta(&of->db, "inode", of->place.spool.inode);
    set_meta(&of->db, "offset", of->place.spool.offset);
    set_meta(&of->db, "mark", of->place.spool.mark);
    set_meta(&of->db, "mark_length", of->place.spool.mark_length);
    for (int which = 0; which < count_end; ++which)
        set_meta(&of->db, count_keys[which], of->counts[static_cast<size_t>(which)]);
}

} // namespace

const char *count_name(home_count which)
{
    constexpr size_t before_name = 6; // "count."
    return count_keys[which] + before_name;
}

bool open_history(history *of, const std::string &path, const database_options &options, std::string *why)
{
    if (!open_database(&of->db, path, options, why))
        return false;
    if (!options.read_only) {
        of->db.before_commit = write_place;
        of->db.before_commit_context = of;
    }
    reload_history(of);
    return true;
}

void close_history(history *of)
{
    close_database(&of->db);
}

void reload_history(history *of)
{
    of->db.error = SQLITE_OK;
    of->place = line_place();
    of->place.run = meta_text(&of->db, "run");
    const struct {
        const char *key;
        int64_t *value;
    } numbers[] = {{"seq", &of->place.last},          {"last_time", &of->place.last_time},
                   {"inode", &of->place.spool.inode}, {"offset", &of->place.spool.offset},
                   {"mark", &of->place.spool.mark},   {"mark_length", &of->place.spool.mark_length}};
    for (const auto &one : numbers)
        *one.value = meta_number(&of->db, one.key, 0);
    for (int which = 0; which < count_end; ++which)
        of->counts[static_cast<size_t>(which)] = meta_number(&of->db, count_keys[which], 0);
    of->untold.clear();
}

void count(history *of, home_count which, int64_t by)
{
    of->counts[which] += by;
}

void add_fact(history *of, fact news)
{
    u32 wanted = 0;
    for (const fact_listener &one : of->listeners)
        wanted |= one.kinds;
    if (news.kind == fact_alert)
        of->db.commit_wanted = true;
    if (wanted & fact_bit(news.kind))
        of->untold.push_back(std::move(news));
}

void tell_facts(history *of)
{
    if (of->db.commit_wanted && !commit_batch(&of->db)) {
        of->untold.clear();
        return;
    }
    std::vector<fact> telling;
    telling.swap(of->untold);
    for (const fact &news : telling)
        for (const fact_listener &one : of->listeners)
            if (one.kinds & fact_bit(news.kind))
                one.told(one.context, news);
}

std::string meta_text(database *db, const char *key)
{
    statement read(db, "SELECT value FROM meta WHERE key=?", key);
    return read.row() ? read.text(0) : std::string();
}

int64_t meta_number(database *db, const char *key, int64_t otherwise)
{
    return number_of(db, otherwise, "SELECT value FROM meta WHERE key=?", key);
}

bool set_meta(database *db, const char *key, const std::string &value)
{
    return change(db, "INSERT INTO meta VALUES(?1,?2) ON CONFLICT(key) DO UPDATE SET value=?2 WHERE value IS NOT ?2", key,
                  value);
}

bool set_meta(database *db, const char *key, int64_t value)
{
    return change(db, "INSERT INTO meta VALUES(?1,?2) ON CONFLICT(key) DO UPDATE SET value=?2 WHERE value IS NOT ?2", key,
                  value);
}
