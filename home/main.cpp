// appident-home: keeps what the daemon pushes, for the household.
#include "common/mac_text.h"
#include "home/account_command.h"
#include "home/command_line.h"
#include "home/days.h"
#include "home/devices.h"
#include "home/home_settings.h"
#include "home/report.h"
#include "home/serve.h"
#include "home/spool_follower.h"
#include "home/upkeep.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <functional>

namespace {

// Exit codes, as the manual page lists them.
enum { exit_done = 0, exit_failed = 1, exit_usage = 2, exit_in_use = 3 };

int fail(const std::string &path, const std::string &why)
{
    fprintf(stderr, "appident-home: %s: %s\n", path.c_str(), why.c_str());
    return exit_failed;
}

// Why the lock was not to be had.
int say_in_use(const std::string &path)
{
    if (errno != EWOULDBLOCK)
        return fail(path + ".lock", strerror(errno));
    fprintf(stderr, "appident-home: %s.lock cannot be taken: the program runs on this database; stop it first\n", path.c_str());
    return exit_in_use;
}

// Changes the history while no other process may. `work` says what went wrong, and about what, in `why`.
int change_history(const home_settings &settings, const std::function<bool(history *, std::string *why)> &work,
                   const char *what)
{
    fd_guard lock(lock_database(settings.database));
    if (lock.get() < 0)
        return say_in_use(settings.database);
    history all;
    std::string why;
    if (!open_history(&all, settings.database, {}, &why))
        return fail(settings.database, why);
    bool done = work(&all, &why);
    close_history(&all);
    give_to_directory_owner(settings.database);
    return done ? exit_done : fail(what, why);
}

int run_import(const home_settings &settings, const char *spool)
{
    auto import = [&](history *all, std::string *why) {
        bool done = import_spool(all, spool);
        *why = all->db.error != SQLITE_OK ? sqlite3_errstr(all->db.error) : strerror(errno);
        return done;
    };
    return change_history(settings, import, spool);
}

int run_report(const home_settings &settings, const given_options &given)
{
    int day = given[option_day] ? read_day(given[option_day]) : 0;
    int until = given[option_until] ? read_day(given[option_until]) : day;
    if ((given[option_day] && day == 0) || (given[option_until] && (day == 0 || until < day))) {
        fputs("appident-home: --day and --until take dates such as 2026-11-22, the later one second\n", stderr);
        return exit_usage;
    }
    ask_for_commit(settings.database);
    history all;
    std::string why;
    if (!open_history(&all, settings.database, {nullptr, true}, &why))
        return fail(settings.database, why);
    app_names apps;
    refresh_app_names(&apps, {settings.installed_catalogue, settings.catalogue});
    print_report(&all, apps, day, until, given[option_json] != nullptr);
    close_history(&all);
    return exit_done;
}

int run_backup(const home_settings &settings, const char *copy)
{
    ask_for_commit(settings.database);
    std::string why;
    return backup_database(settings.database, copy, &why) ? exit_done : fail(settings.database, why);
}

int run_restore(const home_settings &settings, const char *copy)
{
    fd_guard lock(lock_database(settings.database));
    std::string why;
    if (lock.get() < 0)
        return say_in_use(settings.database);
    bool done = restore_database(settings.database, copy, &why);
    give_to_directory_owner(settings.database);
    return done ? exit_done : fail(copy, why);
}

int run_forget(const home_settings &settings, const char *mac)
{
    unsigned char address[6];
    char text[mac_text_size];
    if (!read_mac_text(mac, address)) {
        fputs("appident-home: --forget takes a MAC such as AA-BB-CC-DD-EE-FF\n", stderr);
        return exit_usage;
    }
    write_mac_text(address, text);
    auto forget = [&](history *all, std::string *why) {
        *why = "no such device in the history";
        return forget_device(all, text);
    };
    return change_history(settings, forget, mac);
}

int run_password(const home_settings &settings, const given_options &given)
{
    account_wanted wanted = {given[option_password], given[option_kind] ? given[option_kind] : "",
                             given[option_person] ? given[option_person] : ""};
    bool done = set_password(settings, wanted);
    give_to_directory_owner(settings.database);
    return done ? exit_done : exit_failed;
}

int run_server(const home_settings &settings)
{
    fd_guard lock(lock_database(settings.database));
    if (lock.get() < 0)
        return say_in_use(settings.database);
    std::string why;
    return serve(settings, &why) ? exit_done : fail(settings.database, why);
}

} // namespace

int main(int argc, char **argv)
{
    given_options given;
    if (!read_command_line(argc, argv, &given))
        return exit_usage;
    if (given[option_help])
        return print_help(), exit_done;
    if (given[option_version])
        return puts("appident-home " APPIDENT_VERSION), exit_done;
    // The history is nobody else's business.
    umask(0027);
    tzset();
    home_settings settings;
    if (!read_home_settings(given[option_settings] ? given[option_settings] : home_settings_default_path, &settings))
        return exit_usage;
    if (given[option_database])
        settings.database = given[option_database];
    if (given[option_import])
        return run_import(settings, given[option_import]);
    if (given[option_report])
        return run_report(settings, given);
    if (given[option_backup])
        return run_backup(settings, given[option_backup]);
    if (given[option_restore])
        return run_restore(settings, given[option_restore]);
    if (given[option_forget])
        return run_forget(settings, given[option_forget]);
    if (given[option_password])
        return run_password(settings, given);
    return run_server(settings);
}
