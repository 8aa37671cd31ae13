#include "home/serve.h"

#include "home/mqtt.h"
#include "home/upkeep.h"
#include "home/web_server.h"

#include <algorithm>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <time.h>

namespace {

constexpr int64_t minute_ms = 60000;
constexpr int64_t day_ms = 24 * 60 * minute_ms;

void each_minute(void *context)
{
    household *home = static_cast<household *>(context);
    refresh_app_names(&home->apps, {home->settings->installed_catalogue, home->settings->catalogue});
    // What has been pushed before is taken first; while a long spool is read, the daemon's present would come too early.
    if (read_spool(&home->spool))
        return;
    int64_t now = time(nullptr);
    ask_daemon(&home->truth, now);
    if (home->truth.answers)
        refresh_limits(home);
    end_silent_sessions(&home->all, now);
    tell_facts(&home->all);
}

void each_day(void *context)
{
    household *home = static_cast<household *>(context);
    drop_old_rows(&home->all, time(nullptr), home->settings->session_days, home->settings->day_years);
}

size_t prepare_commit(void *state, pollfd *, size_t, int64_t now_ms, int64_t *wake_ms)
{
    const household *home = static_cast<household *>(state);
    const database &db = home->all.db;
    if (db.batch_began_ms >= 0)
        *wake_ms = db.commit_wanted ? now_ms : db.batch_began_ms + home->settings->commit_interval * 1000;
    return 0;
}

void serve_commit(void *state, const pollfd *, size_t, int64_t)
{
    household *home = static_cast<household *>(state);
    if (!commit_if_due(&home->all.db, home->settings->commit_interval * 1000)) {
        // The spool is read again from where the database says.
        close_spool_follower(&home->spool);
        reload_history(&home->all);
    }
    if (home->asked_to_commit)
        answer_commit(home->settings->database);
    home->asked_to_commit = false;
    home->parts.stop = home->parts.stop || home->all.db.damaged;
}

int block_signals(std::initializer_list<int> numbers)
{
    sigset_t set;
    sigemptyset(&set);
    for (int number : numbers)
        sigaddset(&set, number);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
}

struct hang_up {
    household *home;
    int fd;
};

size_t prepare_hang_up(void *state, pollfd *slots, size_t, int64_t, int64_t *)
{
    slots[0] = {static_cast<hang_up *>(state)->fd, POLLIN, 0};
    return 1;
}

void serve_hang_up(void *state, const pollfd *slots, size_t, int64_t)
{
    hang_up *asked = static_cast<hang_up *>(state);
    signalfd_siginfo about;
    if (!slots[0].revents || read(asked->fd, &about, sizeof(about)) <= 0)
        return;
    // Who asks wants what has been pushed until now.
    read_spool(&asked->home->spool);
    asked->home->all.db.commit_wanted = asked->home->all.db.batch_began_ms >= 0;
    asked->home->asked_to_commit = true;
}

} // namespace

bool serve(const home_settings &settings, std::string *why)
{
    household home;
    home.settings = &settings;
    if (!open_history(&home.all, settings.database, {}, why))
        return false;
    home.spool.of = home.truth.of = &home.all;
    home.spool.directory = settings.runtime_dir;
    home.truth.socket = settings.request_socket;
    home.truth.long_gone = settings.session_days * 86400;
    fd_guard stop(block_signals({SIGTERM, SIGINT}));
    fd_guard hang_up_fd(block_signals({SIGHUP}));
    hang_up asked = {&home, hang_up_fd.get()};
    loop_timer minute = {minute_ms, each_minute, &home}, day = {day_ms, each_day, &home};
    home.parts.parts = {spool_part(&home.spool),
                        timer_part(&minute),
                        timer_part(&day),
                        {prepare_hang_up, serve_hang_up, &asked},
                        {prepare_commit, serve_commit, &home}};
    begin_metrics(&home);
    notice_settings outside = read_notice_settings(settings.tree.get());
    notices *telling = begin_notices(&home, outside);
    home.parts.parts.push_back(notices_part(telling));
    home.broker = begin_mqtt(&home, outside.mqtt);
    if (home.broker)
        home.parts.parts.push_back(mqtt_part(home.broker));
    web_server *web = open_web_server(&home);
    if (web)
        home.parts.parts.push_back(web_part(web));
    run_loop(&home.parts, stop.get());
    bool damaged = home.all.db.damaged;
    if (damaged)
        *why = "the database is damaged; the next start sets it aside";
    else
        while (read_spool(&home.spool)) {
        }
    // No fact comes any more.
    close_web_server(web);
    end_notices(telling);
    end_mqtt(home.broker);
    close_spool_follower(&home.spool);
    close_history(&home.all);
    return !damaged;
}
