#include "home/spool_follower.h"

#include "common/guards.h"
#include "home/joining.h"
#include "home/line_numbers.h"

#include <algorithm>
#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>

namespace {

// Without the bell; with it only to be on the safe side.
constexpr int64_t look_period_ms = 2000, look_period_with_bell_ms = 30000;
constexpr int64_t failure_pause_ms = 10000;

// What is read goes to the history.
void take(void *context, const char *text, size_t length)
{
    take_line(static_cast<history *>(context), text, length);
}

void pass_over(void *context)
{
    pass_over_long_line(static_cast<history *>(context));
}

void count_cut(void *context)
{
    count(static_cast<history *>(context), count_not_json);
}

void begin_after_break(void *context)
{
    history *of = static_cast<history *>(context);
    note_break(of, time(nullptr), of->place.run.empty());
}

constexpr spool_calls to_history = {take, pass_over, count_cut, begin_after_break};

void aim(spool_reader *reader, history *of)
{
    reader->place = &of->place.spool;
    reader->calls = &to_history;
    reader->context = of;
}

// A failed write took back the batch, and with it the place.
bool start_over_after_failure(spool_follower *follower, int64_t now_ms)
{
    roll_back(&follower->of->db);
    reload_history(follower->of);
    close_spool_reader(&follower->reader);
    follower->next_look_ms = now_ms + failure_pause_ms;
    return false;
}

void ring_up(spool_follower *follower)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string path = follower->directory + "/pushes.sock";
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

bool commit_sometimes(void *context)
{
    constexpr int64_t commit_ms = 5000;
    history *of = static_cast<history *>(context);
    return of->db.error == SQLITE_OK && (commit_if_due(&of->db, commit_ms), of->db.error == SQLITE_OK);
}

} // namespace

bool read_spool(spool_follower *follower)
{
    follower->reader.directory = follower->directory;
    aim(&follower->reader, follower->of);
    bool more = read_spool_piece(&follower->reader);
    if (follower->of->db.error == SQLITE_OK)
        tell_facts(follower->of);
    return follower->of->db.error == SQLITE_OK ? more : start_over_after_failure(follower, uptime_ms());
}

void close_spool_follower(spool_follower *follower)
{
    close_spool_reader(&follower->reader);
    if (follower->bell >= 0)
        close(follower->bell);
    follower->bell = -1;
}

loop_part spool_part(spool_follower *follower)
{
    return {prepare_spool, serve_spool, follower};
}

bool import_spool(history *of, const char *path)
{
    // The place is that of the spool that is followed.
    spool_place kept = of->place.spool;
    of->importing = true;
    begin_batch(&of->db); // what is only counted is written too
    spool_reader reader;
    aim(&reader, of);
    bool read = read_whole_spool(&reader, path, commit_sometimes);
    end_silent_sessions(of, of->place.last_time);
    of->place.spool = kept;
    of->importing = false;
    return read && commit_batch(&of->db);
}
