#include "home/upkeep.h"

#include "home/days.h"
#include "home/schema.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>

namespace {

using handle_guard = std::unique_ptr<sqlite3, released_by<sqlite3_close>>;

handle_guard open_handle(const std::string &path, int flags, std::string *why)
{
    sqlite3 *handle = nullptr;
    int code = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
    handle_guard opened(handle);
    if (code == SQLITE_OK)
        return opened;
    *why = path + ": " + sqlite3_errstr(code);
    return nullptr;
}

int64_t first_number(sqlite3 *handle, const char *sql, int64_t otherwise)
{
    sqlite3_stmt *read = nullptr;
    int64_t number = otherwise;
    if (sqlite3_prepare_v2(handle, sql, -1, &read, nullptr) == SQLITE_OK && sqlite3_step(read) == SQLITE_ROW)
        number = sqlite3_column_int64(read, 0);
    sqlite3_finalize(read);
    return number;
}

// A database of ours, whole and not from a newer program.
bool check_copy(sqlite3 *handle, std::string *why)
{
    int64_t version = first_number(handle, "PRAGMA user_version", -1);
    if (version < 1 ||
        first_number(handle, "SELECT count(*) FROM sqlite_schema WHERE name IN('session','day_use','meta')", 0) != 3)
        *why = "it is no database of appident-home";
    else if (version > schema_version())
        *why = "a newer appident-home made it";
    else if (first_number(handle, "SELECT count(*) FROM pragma_integrity_check WHERE integrity_check<>'ok'", 1) != 0)
        *why = "it is damaged";
    else
        return true;
    return false;
}

bool copy_pages(sqlite3 *from, sqlite3 *to, std::string *why)
{
    sqlite3_backup *copying = sqlite3_backup_init(to, "main", from, "main");
    int code = copying ? sqlite3_backup_step(copying, -1) : sqlite3_errcode(to);
    sqlite3_backup_finish(copying);
    // One file that needs no log beside it.
    if (code == SQLITE_DONE && sqlite3_exec(to, "PRAGMA journal_mode=DELETE", nullptr, nullptr, nullptr) == SQLITE_OK)
        return true;
    *why = sqlite3_errstr(code);
    return false;
}

bool remove_if_there(const std::string &path)
{
    return unlink(path.c_str()) == 0 || errno == ENOENT;
}

// Copies to a file beside `target`, then renames it, so that the target is whole or as it was. A log beside the target belongs
// to its old contents and would spoil the new ones.
bool copy_over(sqlite3 *from, const std::string &target, std::string *why)
{
    std::string beside = target + ".new";
    unlink(beside.c_str());
    fd_guard made(open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (made.get() < 0) {
        *why = beside + ": " + strerror(errno);
        return false;
    }
    {
        handle_guard to = open_handle(beside, SQLITE_OPEN_READWRITE, why);
        if (!to || !copy_pages(from, to.get(), why)) {
            unlink(beside.c_str());
            return false;
        }
    }
    if (fsync(made.get()) == 0 && remove_if_there(target + "-wal") && remove_if_there(target + "-shm") &&
        rename(beside.c_str(), target.c_str()) == 0)
        return true;
    *why = target + ": " + strerror(errno);
    unlink(beside.c_str());
    return false;
}

} // namespace

int lock_database(const std::string &path)
{
    fd_guard lock(open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0640));
    if (lock.get() < 0 || flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
        return -1;
    if (ftruncate(lock.get(), 0) != 0 || dprintf(lock.get(), "%d\n", getpid()) < 0)
        return -1;
    return lock.release();
}

void ask_for_commit(const std::string &path)
{
    constexpr int64_t most_wait_ms = 1000;
    fd_guard lock(open((path + ".lock").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    char text[32] = "";
    // Whoever gets the lock here has nobody to ask.
    if (lock.get() < 0 || flock(lock.get(), LOCK_SH | LOCK_NB) == 0 || read(lock.get(), text, sizeof(text) - 1) <= 0)
        return;
    int process = atoi(text);
    struct stat before = {}, now = {};
    if (process <= 1 || fstat(lock.get(), &before) != 0 || kill(process, SIGHUP) != 0)
        return;
    for (int64_t end = uptime_ms() + most_wait_ms; uptime_ms() < end; usleep(5000))
        if (fstat(lock.get(), &now) == 0 &&
            (now.st_mtim.tv_sec != before.st_mtim.tv_sec || now.st_mtim.tv_nsec != before.st_mtim.tv_nsec))
            return;
}

void answer_commit(const std::string &path)
{
    utimensat(AT_FDCWD, (path + ".lock").c_str(), nullptr, AT_SYMLINK_NOFOLLOW);
}

bool backup_database(const std::string &path, const std::string &copy, std::string *why)
{
    handle_guard from = open_handle(path, SQLITE_OPEN_READONLY, why);
    if (!from)
        return false;
    sqlite3_busy_timeout(from.get(), 3000);
    return copy_over(from.get(), copy, why);
}

bool restore_database(const std::string &path, const std::string &copy, std::string *why)
{
    handle_guard from = open_handle(copy, SQLITE_OPEN_READONLY, why);
    if (!from || !check_copy(from.get(), why))
        return false;
    return copy_over(from.get(), path, why);
}

void give_to_directory_owner(const std::string &path)
{
    size_t slash = path.rfind('/');
    struct stat directory, file;
    if (geteuid() != 0 || stat(slash == std::string::npos ? "." : path.substr(0, slash + 1).c_str(), &directory) != 0)
        return;
    for (const char *end : {"", "-wal", "-shm", ".lock"}) {
        std::string name = path + end;
        // Of another file that the owner has put there nothing is changed.
        if (lstat(name.c_str(), &file) != 0 || !S_ISREG(file.st_mode) || file.st_nlink != 1)
            continue;
        if (lchown(name.c_str(), directory.st_uid, directory.st_gid) != 0)
            fprintf(stderr, "appident-home: %s: %s\n", name.c_str(), strerror(errno));
    }
}

void drop_old_rows(history *of, int64_t time, int64_t session_days, int64_t day_years)
{
    constexpr int64_t day = 86400;
    database *db = &of->db;
    int today = day_of(std::min(time, of->place.last_time + day));
    int64_t oldest = day_start(day_after(today, static_cast<int>(-session_days)));
    // Their minutes stay in the days' sums.
    change(db, "DELETE FROM session WHERE start<?1 AND end<?1", oldest);
    change(db, "DELETE FROM alert WHERE time<?", oldest);
    change(db, "DELETE FROM gap WHERE end<?", oldest);
    change(db, "DELETE FROM begun WHERE start<?", oldest);
    change(db, "DELETE FROM run WHERE last_time<? AND run<>?", oldest, of->place.run);
    change(db, "DELETE FROM day_use WHERE day<?", day_after(today, static_cast<int>(-day_years * 365)));
    change(db, "DELETE FROM change WHERE time<?", day_start(day_after(today, static_cast<int>(-day_years * 365))));
    change(db,
           "DELETE FROM device WHERE last_seen<? AND coalesce(role,0)=0 AND person IS NULL AND name_from<>'person' AND id NOT "
           "IN(SELECT device FROM day_use UNION SELECT device FROM session UNION SELECT device FROM alert)",
           oldest);
    of->db.commit_wanted = true;
}
