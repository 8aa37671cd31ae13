// The history's SQLite database: opening it whatever state it is in, statements that are prepared once, and writes in batches.
//
// One thread uses a database. Nothing here throws; the first failed write is kept in `error` and spoils the whole batch, which
// is then taken back, so that the place in the spool and the facts read from it never part.
#ifndef HOME_DATABASE_H
#define HOME_DATABASE_H

#include <sqlite3.h>
#include <stdint.h>

#include <string>
#include <unordered_map>
#include <vector>

struct database {
    sqlite3 *handle = nullptr;
    std::string path;
    std::string set_aside;                                              // where a damaged predecessor went, "" for none
    std::unordered_map<const char *, std::vector<sqlite3_stmt *>> idle; // prepared statements by their text's address
    int64_t batch_began_ms = -1;                                        // uptime; -1: no batch is open
    bool commit_wanted = false;                                         // the open batch holds what must not wait
    int error = SQLITE_OK;                                              // the first failure since the batch began
    bool failing = false;                                               // the last batch was taken back
    bool damaged = false;                           // found while it was open; opened again, it is set aside
    void (*before_commit)(void *context) = nullptr; // writes what goes with every batch
    void *before_commit_context = nullptr;
};

struct database_options {
    const char *vfs = nullptr; // SQLite's own by default
    bool read_only = false;
};

// Opens or makes the database and brings its tables up to date. A damaged file is renamed to PATH.damaged-DATE-TIME and a new
// one begun; that is said on standard error and in `set_aside`. Waits up to 15 seconds
// for one that another program holds. False with the reason in `why` for all else that fails.
bool open_database(database *db, const std::string &path, const database_options &options, std::string *why);
// Commits what is open.
void close_database(database *db);

// Writes go into a batch, begun with the first of them.
void begin_batch(database *db);
// False when the batch was taken back instead.
bool commit_batch(database *db);
void roll_back(database *db);
// Commits an open batch that is older than `interval_ms` or that somebody wants written at once.
bool commit_if_due(database *db, int64_t interval_ms);
// Uptime in milliseconds, which no change of the clock moves.
int64_t uptime_ms();

// A statement in use. `sql` is a text that lives as long as the program: its address is what finds the prepared one again.
class statement {
public:
    template <typename... values>
    statement(database *owner, const char *sql, const values &...given) : statement(owner, sql, nullptr)
    {
        (bind(given), ...);
    }
    ~statement();
    statement(const statement &) = delete;
    statement &operator=(const statement &) = delete;

    // Whether there is another row.
    bool row();
    int64_t number(int column) const { return sqlite3_column_int64(prepared, column); }
    std::string text(int column) const;
    bool is_null(int column) const { return sqlite3_column_type(prepared, column) == SQLITE_NULL; }

private:
    statement(database *owner, const char *sql, decltype(nullptr));
    void bind(const std::string &value);
    void bind(const char *value) { bind(std::string(value)); }
    void bind(int64_t value);
    void bind(decltype(nullptr)) { ++bound; } // a fresh statement's parameters are NULL
    template <typename number> void bind(number value) { bind(static_cast<int64_t>(value)); }

    database *db;
    const char *key;
    sqlite3_stmt *prepared = nullptr;
    int bound = 0;
};

// One write, in the batch. False when it failed, as every further one of the batch will.
template <typename... values> bool change(database *db, const char *sql, const values &...given)
{
    begin_batch(db);
    if (db->error != SQLITE_OK)
        return false;
    statement write(db, sql, given...);
    while (write.row()) {
    }
    return db->error == SQLITE_OK;
}

// The first column of the first row, or `otherwise` when there is none or it is NULL.
template <typename... values> int64_t number_of(database *db, int64_t otherwise, const char *sql, const values &...given)
{
    statement read(db, sql, given...);
    return read.row() && !read.is_null(0) ? read.number(0) : otherwise;
}

#endif
