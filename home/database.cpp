#include "home/database.h"

#include "home/schema.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr int busy_ms = 3000;
constexpr int most_tries_to_open = 5; // each may wait so long

// From the start on: the check reads every page.
constexpr const char *settings_of_all = "PRAGMA cache_size=-512";

// Each commit is synced (FULL; NORMAL syncs at checkpoints only, days apart at this rate), as no more than the commit interval
// may be lost with the power. Small pages, as each commit writes whole ones. A batch's pages stay in memory until it is
// committed; what is freed by "forget" must not be read from the file.
constexpr const char *settings_of_writers =
    "PRAGMA page_size=1024;PRAGMA journal_mode=WAL;PRAGMA synchronous=FULL;PRAGMA foreign_keys=ON;"
    "PRAGMA journal_size_limit=1048576;"
    "PRAGMA secure_delete=FAST;PRAGMA temp_store=MEMORY";

bool is_damage(int code)
{
    return (code & 0xff) == SQLITE_CORRUPT || (code & 0xff) == SQLITE_NOTADB;
}

void close_handle(database *db)
{
    for (auto &known : db->idle)
        for (sqlite3_stmt *prepared : known.second)
            sqlite3_finalize(prepared);
    db->idle.clear();
    sqlite3_close(db->handle);
    db->handle = nullptr;
}

// SQLITE_OK, or what is wrong with the file.
int check(sqlite3 *handle)
{
    sqlite3_stmt *read = nullptr;
    int code = sqlite3_prepare_v2(handle, "PRAGMA quick_check(1)", -1, &read, nullptr);
    if (code == SQLITE_OK) {
        code = sqlite3_step(read);
        if (code == SQLITE_ROW)
            code = strcmp(reinterpret_cast<const char *>(sqlite3_column_text(read, 0)), "ok") == 0 ? SQLITE_OK : SQLITE_CORRUPT;
    }
    sqlite3_finalize(read);
    return code;
}

int try_open(database *db, const database_options &options, std::string *why)
{
    int flags = options.read_only ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    int code = sqlite3_open_v2(db->path.c_str(), &db->handle, flags | SQLITE_OPEN_NOMUTEX, options.vfs);
    if (code == SQLITE_OK) {
        sqlite3_extended_result_codes(db->handle, 1);
        sqlite3_busy_timeout(db->handle, busy_ms);
        code = sqlite3_exec(db->handle, settings_of_all, nullptr, nullptr, nullptr);
    }
    if (code == SQLITE_OK) {
        code = check(db->handle);
    }
    if (code == SQLITE_OK && !options.read_only)
        code = sqlite3_exec(db->handle, settings_of_writers, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK)
        *why = db->handle && sqlite3_errcode(db->handle) != SQLITE_OK ? sqlite3_errmsg(db->handle) : sqlite3_errstr(code);
    return code;
}

// False when the file cannot be moved away.
bool set_aside(database *db, const std::string &why)
{
    time_t now = time(nullptr);
    tm local = {};
    char stamp[32] = "";
    if (localtime_r(&now, &local))
        strftime(stamp, sizeof(stamp), "%Y%m%d-%H%M%S", &local);
    std::string aside = db->path + ".damaged-" + stamp;
    for (int more = 2; access(aside.c_str(), F_OK) == 0; ++more)
        aside = db->path + ".damaged-" + stamp + "-" + std::to_string(more);
    if (rename(db->path.c_str(), aside.c_str()) != 0)
        return false;
    // Beside a new database the old log would damage it again.
    for (const char *companion : {"-wal", "-shm"})
        if (rename((db->path + companion).c_str(), (aside + companion).c_str()) != 0 && errno != ENOENT)
            unlink((db->path + companion).c_str());
    db->set_aside = aside;
    fprintf(stderr, "appident-home: the database %s is damaged (%s); it is kept as %s and a new one is begun\n",
            db->path.c_str(), why.c_str(), aside.c_str());
    return true;
}

// SQLITE_OK, or why it cannot be used.
int open_usable(database *db, const database_options &options, std::string *why)
{
    int code = try_open(db, options, why);
    if (is_damage(code) && !options.read_only) {
        close_handle(db);
        if (!set_aside(db, *why)) {
            *why = "the database is damaged and cannot be renamed: " + std::string(strerror(errno));
            return code;
        }
        code = try_open(db, options, why);
    }
    if (code != SQLITE_OK || options.read_only || migrate(db->handle, why))
        return code;
    int reason = sqlite3_errcode(db->handle);
    return reason == SQLITE_OK ? SQLITE_ERROR : reason;
}

} // namespace

bool open_database(database *db, const std::string &path, const database_options &options, std::string *why)
{
    db->path = path;
    for (int tries = 1;; ++tries) {
        int code = open_usable(db, options, why);
        if (code == SQLITE_OK)
            return true;
        // This also gives up the locks of the handle: two programs that wait for each other's would wait until both fail.
        close_handle(db);
        if ((code & 0xff) != SQLITE_BUSY || tries == most_tries_to_open)
            return false;
    }
}

void close_database(database *db)
{
    if (!db->handle)
        return;
    commit_batch(db);
    close_handle(db);
}

int64_t uptime_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void begin_batch(database *db)
{
    if (db->batch_began_ms >= 0)
        return;
    db->error = sqlite3_exec(db->handle, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    if (db->error == SQLITE_OK)
        db->batch_began_ms = uptime_ms();
}

void roll_back(database *db)
{
    db->damaged = db->damaged || is_damage(db->error);
    db->failing = true;
    // After some failures SQLite has done so itself.
    if (db->batch_began_ms >= 0 && !sqlite3_get_autocommit(db->handle))
        sqlite3_exec(db->handle, "ROLLBACK", nullptr, nullptr, nullptr);
    db->batch_began_ms = -1;
    db->commit_wanted = false;
}

bool commit_batch(database *db)
{
    db->commit_wanted = false;
    if (db->batch_began_ms < 0)
        return db->error == SQLITE_OK;
    if (db->before_commit && db->error == SQLITE_OK)
        db->before_commit(db->before_commit_context);
    if (db->error == SQLITE_OK)
        db->error = sqlite3_exec(db->handle, "COMMIT", nullptr, nullptr, nullptr);
    bool good = db->error == SQLITE_OK;
    db->failing = !good;
    if (!good) {
        fprintf(stderr, "appident-home: cannot write to %s: %s\n", db->path.c_str(), sqlite3_errstr(db->error));
        roll_back(db);
    }
    db->batch_began_ms = -1;
    return good;
}

bool commit_if_due(database *db, int64_t interval_ms)
{
    if (db->batch_began_ms < 0 || (!db->commit_wanted && uptime_ms() - db->batch_began_ms < interval_ms))
        return true;
    return commit_batch(db);
}

statement::statement(database *owner, const char *sql, decltype(nullptr)) : db(owner), key(sql)
{
    std::vector<sqlite3_stmt *> &idle = db->idle[key];
    if (!idle.empty()) {
        prepared = idle.back();
        idle.pop_back();
        return;
    }
    int code = sqlite3_prepare_v3(db->handle, sql, -1, SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
    if (code == SQLITE_OK)
        return;
    fprintf(stderr, "appident-home: %s: %s\n", sqlite3_errmsg(db->handle), sql);
    if (db->error == SQLITE_OK)
        db->error = code;
}

statement::~statement()
{
    if (!prepared)
        return;
    sqlite3_reset(prepared);
    sqlite3_clear_bindings(prepared);
    db->idle[key].push_back(prepared);
}

void statement::bind(const std::string &value)
{
    sqlite3_bind_text(prepared, ++bound, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
}

void statement::bind(int64_t value)
{
    sqlite3_bind_int64(prepared, ++bound, value);
}

bool statement::row()
{
    int code = prepared ? sqlite3_step(prepared) : SQLITE_ERROR;
    if (code == SQLITE_ROW)
        return true;
    if (code != SQLITE_DONE && db->error == SQLITE_OK)
        db->error = code;
    return false;
}

std::string statement::text(int column) const
{
    const unsigned char *bytes = sqlite3_column_text(prepared, column);
    return bytes
               ? std::string(reinterpret_cast<const char *>(bytes), static_cast<size_t>(sqlite3_column_bytes(prepared, column)))
               : std::string();
}
