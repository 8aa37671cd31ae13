#include "home/schema.h"

namespace {

// What is written together lies together: each commit writes whole pages, and flash wears. So sessions lie by their start,
// those of all devices side by side, and counters lie with the place in the spool.
//
// Step n brings version n to n + 1. A step that has once been released is never changed.
constexpr const char *steps[] = {
    R"sql(
CREATE TABLE meta(key TEXT PRIMARY KEY, value) WITHOUT ROWID;
CREATE TABLE person(id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE device(
    id INTEGER PRIMARY KEY, mac TEXT NOT NULL UNIQUE,
    name TEXT NOT NULL DEFAULT '', name_from TEXT NOT NULL DEFAULT 'none',
    role INTEGER, role_from TEXT NOT NULL DEFAULT '',
    person INTEGER REFERENCES person(id) ON DELETE SET NULL,
    address TEXT NOT NULL DEFAULT '', on_line INTEGER NOT NULL DEFAULT 0, private_mac INTEGER NOT NULL DEFAULT 0,
    first_seen INTEGER NOT NULL DEFAULT 0, last_seen INTEGER NOT NULL DEFAULT 0);
CREATE TABLE session(
    device INTEGER NOT NULL REFERENCES device(id) ON DELETE CASCADE,
    start INTEGER NOT NULL, app INTEGER NOT NULL, end INTEGER NOT NULL,
    minutes INTEGER NOT NULL DEFAULT 0, up INTEGER NOT NULL DEFAULT 0, down INTEGER NOT NULL DEFAULT 0,
    state INTEGER NOT NULL DEFAULT 0,
    heard INTEGER NOT NULL DEFAULT 0, steady INTEGER NOT NULL DEFAULT 0,
    jumped INTEGER NOT NULL DEFAULT 0, told INTEGER NOT NULL DEFAULT 0,
    PRIMARY KEY(start, device, app)) WITHOUT ROWID;
CREATE INDEX session_untold ON session(device, app) WHERE told = 0;
CREATE TABLE begun(
    device INTEGER NOT NULL REFERENCES device(id) ON DELETE CASCADE, app INTEGER NOT NULL, start INTEGER NOT NULL,
    PRIMARY KEY(device, app)) WITHOUT ROWID;
CREATE TABLE day_use(
    day INTEGER NOT NULL, device INTEGER NOT NULL REFERENCES device(id) ON DELETE CASCADE, app INTEGER NOT NULL,
    minutes INTEGER NOT NULL DEFAULT 0, up INTEGER NOT NULL DEFAULT 0, down INTEGER NOT NULL DEFAULT 0,
    PRIMARY KEY(day, device, app)) WITHOUT ROWID;
CREATE TABLE alert(
    id INTEGER PRIMARY KEY, time INTEGER NOT NULL, device INTEGER NOT NULL REFERENCES device(id) ON DELETE CASCADE,
    kind INTEGER NOT NULL, app INTEGER NOT NULL DEFAULT 0, class INTEGER NOT NULL DEFAULT 0,
    amount INTEGER NOT NULL DEFAULT 0, rules TEXT NOT NULL DEFAULT '',
    UNIQUE(time, device, kind, app, class, amount));
CREATE TABLE run(
    run TEXT PRIMARY KEY, last INTEGER NOT NULL, first_time INTEGER NOT NULL, last_time INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE gap(
    id INTEGER PRIMARY KEY, start INTEGER NOT NULL, end INTEGER NOT NULL, lost INTEGER NOT NULL, why TEXT NOT NULL,
    run TEXT NOT NULL DEFAULT '', first INTEGER NOT NULL DEFAULT 0, last INTEGER NOT NULL DEFAULT 0);
CREATE VIEW count AS SELECT substr(key, 7) AS name, value FROM meta WHERE key GLOB 'count.*';
CREATE TABLE account(
    id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE, kind TEXT NOT NULL, password TEXT NOT NULL,
    person INTEGER REFERENCES person(id) ON DELETE SET NULL, language TEXT NOT NULL DEFAULT '',
    created INTEGER NOT NULL);
CREATE TABLE token(
    hash TEXT PRIMARY KEY, account INTEGER NOT NULL REFERENCES account(id) ON DELETE CASCADE,
    created INTEGER NOT NULL, used INTEGER NOT NULL, expires INTEGER NOT NULL)
    WITHOUT ROWID;
CREATE TABLE change(
    id INTEGER PRIMARY KEY, time INTEGER NOT NULL, account TEXT NOT NULL, address TEXT NOT NULL DEFAULT '',
    device TEXT NOT NULL DEFAULT '', what TEXT NOT NULL, before TEXT NOT NULL DEFAULT '', after TEXT NOT NULL DEFAULT '');
)sql",
};

constexpr int step_count = static_cast<int>(sizeof(steps) / sizeof(*steps));

int version_of(sqlite3 *handle)
{
    sqlite3_stmt *read = nullptr;
    int version = -1;
    if (sqlite3_prepare_v2(handle, "PRAGMA user_version", -1, &read, nullptr) == SQLITE_OK && sqlite3_step(read) == SQLITE_ROW)
        version = sqlite3_column_int(read, 0);
    sqlite3_finalize(read);
    return version;
}

} // namespace

int schema_version()
{
    return step_count;
}

bool migrate(sqlite3 *handle, std::string *why)
{
    int version = version_of(handle);
    if (version > step_count) {
        *why = "a newer appident-home made this database (version " + std::to_string(version) + "; this one knows " +
               std::to_string(step_count) + ")";
        return false;
    }
    for (; version >= 0 && version < step_count; ++version) {
        std::string step =
            std::string("BEGIN IMMEDIATE;") + steps[version] + "PRAGMA user_version=" + std::to_string(version + 1) + ";COMMIT";
        if (sqlite3_exec(handle, step.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK)
            continue;
        *why = std::string("cannot bring the tables up to date: ") + sqlite3_errmsg(handle);
        if (!sqlite3_get_autocommit(handle)) // the caller asks for the reason
            sqlite3_exec(handle, "ROLLBACK", nullptr, nullptr, nullptr);
        return false;
    }
    if (version < 0)
        *why = std::string("cannot read the version: ") + sqlite3_errmsg(handle);
    return version == step_count;
}
