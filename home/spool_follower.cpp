#include "home/spool_follower.h"

#include "common/guards.h"
#include "home/joining.h"
#include "home/line_numbers.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>

namespace {

constexpr size_t piece_size = 64 * 1024;
// Without the bell; with it only to be on the safe side.
constexpr int64_t look_period_ms = 2000, look_period_with_bell_ms = 30000;
constexpr int64_t failure_pause_ms = 10000;

int64_t digest(const char *bytes, size_t length)
{
    uint64_t sum = 14695981039346656037ull;
    for (size_t i = 0; i < length; ++i)
        sum = (sum ^ static_cast<unsigned char>(bytes[i])) * 1099511628211ull;
    return static_cast<int64_t>(sum);
}

std::string path_of(const spool_follower &follower, const char *name)
{
    return follower.directory + "/" + name;
}

int open_file(const std::string &path)
{
    int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat about;
    if (file >= 0 && (fstat(file, &about) != 0 || !S_ISREG(about.st_mode))) {
        close(file);
        file = -1;
    }
    return file;
}

int64_t inode_at(const std::string &path)
{
    struct stat about;
    return stat(path.c_str(), &about) == 0 ? static_cast<int64_t>(about.st_ino) : 0;
}

int64_t inode_of(int file)
{
    struct stat about;
    return fstat(file, &about) == 0 ? static_cast<int64_t>(about.st_ino) : 0;
}

// Whether the file is the one that the place was reached in.
bool holds_place(int file, const line_place &place)
{
    if (place.inode == 0 || inode_of(file) != place.inode)
        return false;
    std::string line(static_cast<size_t>(place.mark_length), '\0');
    ssize_t size = pread(file, line.data(), line.size(), place.offset - place.mark_length);
    return size == static_cast<ssize_t>(line.size()) && digest(line.data(), line.size()) == place.mark;
}

void start_file(spool_follower *follower, int file, bool from_begin)
{
    if (follower->file >= 0 && follower->file != file)
        close(follower->file);
    follower->file = file;
    follower->begun.clear();
    follower->too_long = false;
    follower->old_file = false;
    if (from_begin) {
        line_place *place = &follower->of->place;
        place->inode = inode_of(file);
        place->offset = place->mark_length = 0;
        place->mark = digest("", 0);
    }
    follower->read_at = follower->of->place.offset;
}

// The older of the two files, or the only one there is.
void start_anew(spool_follower *follower)
{
    fd_guard newer(open_file(path_of(*follower, "pushes.jsonl")));
    // Looked for after the newer one was opened: what was renamed in between is found here, and is older.
    fd_guard older(open_file(path_of(*follower, "pushes.jsonl.1")));
    if (older.get() >= 0)
        start_file(follower, older.release(), true);
    else if (newer.get() >= 0)
        start_file(follower, newer.release(), true);
}

// Lines were missed: the file that we were at is neither of the two any more.
void start_after_break(spool_follower *follower)
{
    note_break(follower->of, time(nullptr), follower->of->place.run.empty());
    start_anew(follower);
}

bool open_at_place(spool_follower *follower)
{
    for (const char *name : {"pushes.jsonl", "pushes.jsonl.1"}) {
        fd_guard file(open_file(path_of(*follower, name)));
        if (file.get() >= 0 && holds_place(file.get(), follower->of->place)) {
            start_file(follower, file.release(), false);
            return true;
        }
    }
    bool first_start = follower->of->place.inode == 0;
    if (first_start)
        start_anew(follower);
    else if (inode_at(path_of(*follower, "pushes.jsonl")) != 0)
        start_after_break(follower);
    return follower->file >= 0;
}

// The file at hand is read to its end, for good.
void start_next_file(spool_follower *follower)
{
    if (!follower->begun.empty() || follower->too_long)
        count(follower->of, count_not_json);
    int64_t ours = inode_of(follower->file);
    fd_guard next(open_file(path_of(*follower, "pushes.jsonl")));
    if (next.get() < 0)
        return;
    // Looked at after the next file was opened: then nothing can have come between the two.
    if (inode_at(path_of(*follower, "pushes.jsonl.1")) == ours)
        start_file(follower, next.release(), true);
    else
        start_after_break(follower);
}

void end_line(spool_follower *follower, int64_t next_line)
{
    line_place *place = &follower->of->place;
    if (!follower->too_long && !follower->begun.empty())
        take_line(follower->of, follower->begun.c_str(), follower->begun.size());
    follower->begun.push_back('\n');
    place->offset = next_line;
    place->mark_length = follower->too_long ? 0 : static_cast<int64_t>(follower->begun.size());
    place->mark = digest(follower->begun.data(), static_cast<size_t>(place->mark_length));
    follower->begun.clear();
    follower->too_long = false;
}

// Takes the whole lines of what has been read and keeps the rest.
void take_piece(spool_follower *follower, const char *piece, size_t size)
{
    for (size_t at = 0; at < size;) {
        const char *end = static_cast<const char *>(memchr(piece + at, '\n', size - at));
        size_t length = end ? static_cast<size_t>(end - piece) - at : size - at;
        if (!follower->too_long)
            follower->begun.append(piece + at, length);
        if (follower->begun.size() > push_line_limit) {
            pass_over_long_line(follower->of);
            follower->too_long = true;
            follower->begun.clear();
        }
        at += length + (end ? 1 : 0);
        if (end)
            end_line(follower, follower->read_at + static_cast<int64_t>(at));
    }
    follower->read_at += static_cast<int64_t>(size);
}

// True when the place has become another one, and reading goes on there.
bool look_for_change(spool_follower *follower)
{
    if (follower->old_file) {
        start_next_file(follower);
        return !follower->old_file;
    }
    int64_t named = inode_at(path_of(*follower, "pushes.jsonl"));
    struct stat about;
    if (named != 0 && named != inode_of(follower->file)) {
        // What was written before it lost its name has still to be read.
        follower->old_file = true;
        return true;
    }
    if (fstat(follower->file, &about) != 0 || about.st_size >= follower->read_at)
        return false;
    // The daemon takes back half a line that found no room. Nobody but it shortens the file otherwise.
    bool all = about.st_size < follower->of->place.offset;
    if (all)
        note_break(follower->of, time(nullptr), follower->of->place.run.empty());
    start_file(follower, follower->file, all);
    return true;
}

// A failed write took back the batch, and with it the place.
bool start_over_after_failure(spool_follower *follower, int64_t now_ms)
{
    roll_back(&follower->of->db);
    reload_history(follower->of);
    if (follower->file >= 0)
        close(follower->file);
    follower->file = -1;
    follower->next_look_ms = now_ms + failure_pause_ms;
    return false;
}

void ring_up(spool_follower *follower)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string path = path_of(*follower, "pushes.sock");
    if (path.size() >= sizeof(address.sun_path))
        return;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    fd_guard bell(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (bell.get() >= 0 && connect(bell.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0)
        follower->bell = bell.release();
}

// What the bell says stands in the spool too.
void hear_bell(spool_follower *follower)
{
    char unread[8192];
    ssize_t size;
    do
        size = recv(follower->bell, unread, sizeof(unread), 0);
    while (size == static_cast<ssize_t>(sizeof(unread)));
    if (size > 0 || (size < 0 && (errno == EAGAIN || errno == EINTR)))
        return;
    close(follower->bell);
    follower->bell = -1;
}

size_t prepare_spool(void *state, pollfd *slots, size_t room, int64_t, int64_t *wake_ms)
{
    spool_follower *follower = static_cast<spool_follower *>(state);
    *wake_ms = follower->next_look_ms;
    if (follower->bell < 0 || room == 0)
        return 0;
    slots[0] = {follower->bell, POLLIN, 0};
    return 1;
}

void serve_spool(void *state, const pollfd *slots, size_t used, int64_t now_ms)
{
    spool_follower *follower = static_cast<spool_follower *>(state);
    bool rung = used > 0 && slots[0].revents;
    if (!rung && now_ms < follower->next_look_ms)
        return;
    if (rung)
        hear_bell(follower);
    else if (follower->bell < 0)
        ring_up(follower);
    int64_t period = follower->bell < 0 ? look_period_ms : look_period_with_bell_ms;
    follower->next_look_ms = read_spool(follower) ? now_ms : std::max(follower->next_look_ms, now_ms + period);
}

} // namespace

bool read_spool(spool_follower *follower)
{
    if (follower->file < 0 && !open_at_place(follower))
        return false;
    std::string piece(piece_size, '\0');
    ssize_t size = pread(follower->file, piece.data(), piece.size(), follower->read_at);
    bool more = size > 0 || look_for_change(follower);
    if (size > 0)
        take_piece(follower, piece.data(), static_cast<size_t>(size));
    if (follower->of->db.error == SQLITE_OK)
        tell_facts(follower->of);
    return follower->of->db.error == SQLITE_OK ? more : start_over_after_failure(follower, uptime_ms());
}

void close_spool_follower(spool_follower *follower)
{
    for (int *fd : {&follower->file, &follower->bell}) {
        if (*fd >= 0)
            close(*fd);
        *fd = -1;
    }
}

loop_part spool_part(spool_follower *follower)
{
    return {prepare_spool, serve_spool, follower};
}

bool import_spool(history *of, const char *path)
{
    constexpr int64_t commit_ms = 5000;
    spool_follower reader;
    reader.of = of;
    reader.file = open(path, O_RDONLY | O_CLOEXEC);
    if (reader.file < 0)
        return false;
    // The place is that of the spool that is followed.
    line_place kept = of->place;
    begin_batch(&of->db); // what is only counted is written too
    std::string piece(piece_size, '\0');
    ssize_t size;
    while ((size = read(reader.file, piece.data(), piece.size())) > 0 && of->db.error == SQLITE_OK) {
        take_piece(&reader, piece.data(), static_cast<size_t>(size));
        commit_if_due(&of->db, commit_ms);
    }
    if (!reader.begun.empty())
        end_line(&reader, reader.read_at);
    end_silent_sessions(of, of->place.last_time);
    of->place.inode = kept.inode;
    of->place.offset = kept.offset;
    of->place.mark = kept.mark;
    of->place.mark_length = kept.mark_length;
    close_spool_follower(&reader);
    return size == 0 && commit_batch(&of->db);
}
