// doctor: why is there no data? Follows the data's way from the daemon's start to the last push; a line for each station.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/daemon_call.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/finding.h"
#include "tools/appidentctl/json_file.h"
#include "tools/appidentctl/lan_look.h"
#include "tools/appidentctl/table.h"
#include "tools/appidentctl/time_text.h"

#include "common/sec_plg_common.h"

#include <algorithm>
#include <errno.h>
#include <pwd.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

severity level_after_quiet(u32 since)
{
    return seconds_since(since) > quiet_seconds ? fault : warning;
}

finding expect_none(u32 value, const char *what, const char *advice)
{
    return value ? finding{warning, std::to_string(value) + " " + what, advice} : finding{fine, std::string("no ") + what, ""};
}

u32 accounting_messages(const evidence &seen)
{
    return seen[counter_traffic_messages] - seen[counter_traffic_other] - seen[counter_traffic_short];
}

namespace {

constexpr const char *severity_names[] = {"ok", "warning", "FAULT"};

std::string number(u32 value)
{
    return std::to_string(value);
}

std::string user_text(uid_t id)
{
    const passwd *entry = getpwuid(id);
    return entry ? entry->pw_name : number(id);
}

finding check_daemon(const evidence &seen)
{
    constexpr const char *start = "start it: 'systemctl start appident' or '/etc/init.d/appident start'";
    struct stat about = {};
    switch (seen.state) {
    case daemon_unseen:
        if (stat(seen.where.counters.c_str(), &about) == 0 && access(seen.where.counters.c_str(), R_OK) != 0)
            return {fault, "no right to read " + seen.where.counters, how_to_join(about.st_gid)};
        return {fault, "not running: no counters at " + seen.where.counters, start};
    case daemon_gone:
        return {fault, "process " + number(seen.own.owner) + " has ended; the figures below are those of its run",
                std::string(start) + "; if it ends again, see the LAN below and the journal"};
    case daemon_starting:
        return {warning, "starting, " + number(seconds_to_start(seen.own)) + " s to go", "wait; nothing is counted before"};
    case daemon_serving:
        break;
    }
    return {fine, "serving, process " + number(seen.own.owner), ""};
}

finding check_socket(const evidence &seen)
{
    if (seen.reachable)
        return {fine, "answers at " + seen.where.socket, ""};
    return {seen.state == daemon_starting ? warning : fault, why_unreachable(seen.where),
            seen.state == daemon_starting ? "wait" : "see there; a client of the wrong group is turned away"};
}

finding check_settings(const evidence &seen)
{
    if (!seen.where.settings_valid)
        return {fault, seen.where.settings + " makes no sense or names an unknown group; the defaults are in force",
                "mend the file and restart the daemon"};
    return {fine, "state in " + seen.where.state_dir + ", LAN interface " + seen.where.lan_interface, ""};
}

finding check_clock(const evidence &seen)
{
    constexpr time_t plausible = 1700000000; // late 2023, before the daemon was written
    if (seen.now < plausible)
        return {fault, "not set: " + time_text(seen.now), "let the box reach a time server; nothing is recorded in 1970"};
    if (seen[counter_last_hit_time] > seen.now + 60)
        return {warning, "the last record lies in the future: the clock was set back", "sessions were closed then; go on"};
    if (seen[counter_hits_clock_unset])
        return {warning, number(seen[counter_hits_clock_unset]) + " hits came before the clock was set",
                "start the daemon later"};
    return {fine, time_text(seen.now), ""};
}

// What others put at the daemon's paths, while it ran or before.
finding check_owners(const evidence &seen)
{
    struct stat process = {}, about = {};
    if (stat(("/proc/" + number(seen.own.owner)).c_str(), &process) != 0)
        return {fine,
                owner_lives(seen.own) ? "not to be seen from here: the daemon's process is hidden"
                                      : "not to be told while no daemon runs",
                ""};
    for (const std::string &path : {seen.where.socket, seen.where.counters, seen.where.log})
        if (lstat(path.c_str(), &about) == 0 && about.st_uid != process.st_uid)
            return {fault, path + " belongs to " + user_text(about.st_uid) + ", the daemon to " + user_text(process.st_uid),
                    "remove what another user put there, and restart the daemon"};
    return {fine, "socket, counters and log belong to " + user_text(process.st_uid), ""};
}

// The interface that the library chose, or the one of the settings where nobody tells.
std::string lan_name(const evidence &seen)
{
    return seen.known.lan_interface.empty() ? seen.where.lan_interface : seen.known.lan_interface;
}

finding check_lan(const evidence &seen)
{
    std::string name = lan_name(seen), why = seen.known.lan_reason.empty() ? "" : " (" + seen.known.lan_reason + ")";
    if (name.empty() || name == "auto")
        return {seen.reachable ? fault : warning, "no LAN has been found yet" + why,
                "is there a bridge or an interface with a private IPv4 address? else name it as \"lan_interface\" in " +
                    seen.where.settings};
    lan_look lan = look_at_lan(name);
    if (!lan.exists)
        return {fault, "there is no interface " + name, "name the right one as \"lan_interface\" in " + seen.where.settings};
    if (!lan.up)
        return {fault, name + " is down", "bring it up"};
    if (lan.address.empty())
        return {fault, name + " has no IPv4 address", "give it one"};
    return {fine, name + " is up with " + lan.address + why, ""};
}

finding check_neighbours(const evidence &seen)
{
    std::string name = lan_name(seen);
    int count = count_neighbours(name);
    if (count < 0)
        return {fine, "not to be seen from here", ""};
    if (count == 0)
        return {warning, "the kernel knows nobody on " + name, "is a device connected, and to this interface?"};
    return {fine, std::to_string(count) + " on " + name, ""};
}

finding check_roster(const evidence &seen)
{
    if (seen[platform_roster_unreadable])
        return {fault,
                "the daemon could not read " + seen.where.roster + ", " + number(seen[platform_roster_unreadable]) + " times",
                "is it JSON, and readable by the daemon's user? until then the last good one is in use"};
    return expect_none(seen[platform_roster_entries_refused], "roster entries left out", "each needs a MAC of its own");
}

long watched_devices(const evidence &seen)
{
    return std::count_if(seen.known.devices.begin(), seen.known.devices.end(),
                         [](const known_device &one) { return one.role > 0; });
}

finding check_roles(const evidence &seen)
{
    if (!seen.known.devices_known)
        return {fault, "no devices: nobody answers, and there is no roster at " + seen.where.roster, "start the daemon"};
    auto count = [&](auto holds) { return std::count_if(seen.known.devices.begin(), seen.known.devices.end(), holds); };
    auto with_role = watched_devices(seen);
    auto online = count([](const known_device &one) { return one.role > 0 && one.on_line; });
    auto limited = count([](const known_device &one) { return one.role == 1; });
    std::string text = std::to_string(with_role) + " of " + std::to_string(seen.known.devices.size()) + " have a role, " +
                       std::to_string(online) + " of them on line, " + std::to_string(limited) + " of role 1 (limits)";
    if (with_role == 0)
        return {fault, text, "'appidentctl devices' lists them; 'appidentctl device NAME --role 1' watches one"};
    return online ? finding{fine, text, ""} : finding{warning, text, "none can use anything now"};
}

// How long ago the daemon was started.
std::string start_text(const evidence &seen)
{
    return span_text(seconds_since(seen[counter_started_uptime]));
}

// The feed may have sent all its messages before the daemon was there to take them.
finding check_arrival(const evidence &seen)
{
    u32 sent = seen[feed_messages_sent];
    if (sent == 0)
        return {warning, "the feed has not found an app in use yet", "use one; it is told within a minute"};
    bool is_older = seconds_since(seen[feed_started_uptime]) > seconds_since(seen[counter_started_uptime]) + quiet_seconds;
    return {is_older ? warning : level_after_quiet(seen[counter_started_uptime]),
            "the feed sent " + number(sent) + " messages, and none arrived since the daemon's start, " + start_text(seen) +
                " ago",
            "use an app for some minutes; if none arrives then, restart both"};
}

finding check_traffic(const evidence &seen)
{
    if (accounting_messages(seen) > 0)
        return {fine, number(accounting_messages(seen)) + " accounting messages", ""};
    if (seen.feed_runs())
        return check_arrival(seen);
    severity level = level_after_quiet(seen[counter_started_uptime]);
    return {level, "no accounting message since the start, " + start_text(seen) + " ago",
            level == warning ? "use an app for some minutes; to see it takes appident-feed, or a vendor's kernel"
                             : "this kernel has no inspection engine: install appident-feed, which sees the apps instead; on a "
                               "vendor's kernel, load its module"};
}

finding check_decoding(const evidence &seen)
{
    return expect_none(seen[counter_traffic_undecodable] + seen[counter_traffic_short],
                       "messages short or without all attributes", "do the kernel's module and the daemon belong together?");
}

finding check_unknown_macs(const evidence &seen)
{
    return expect_none(seen[counter_hits_unknown_mac], "hits from addresses without a known MAC",
                       "is every LAN on \"lan_interface\"? a device behind another router cannot be told apart");
}

finding check_unknown_devices(const evidence &seen)
{
    u32 hits = seen[counter_hits_unknown_device];
    if (watched_devices(seen) > 0) // to leave the others alone is the household's choice
        return {fine, number(hits) + " hits of devices that nobody watches", ""};
    return expect_none(hits, "hits from devices that are not tracked", "give the device a role and let it come on line again");
}

finding check_lost(const evidence &seen)
{
    return expect_none(seen[counter_traffic_lost] + seen[platform_router_overruns], "losses in full receive buffers",
                       "raise net.core.rmem_max, or find what keeps the box busy");
}

finding check_records(const evidence &seen)
{
    // Where only devices that nobody watches were in use, nothing is wrong.
    bool is_wrong = accounting_messages(seen) > 0 && seen[counter_hits_unknown_device] == 0;
    if (seen[counter_hits_tracked] == 0)
        return {is_wrong ? level_after_quiet(seen[counter_started_uptime]) : warning, "nothing recorded yet",
                "see the lines above; " + number(seen[counter_hits_foreign]) + " hits were of no app of ours"};
    time_t age = std::max<time_t>(seen.now - static_cast<time_t>(seen[counter_last_hit_time]), 0);
    std::string text = number(seen[counter_hits_tracked]) + " hits recorded, the last " + span_text(age) + " ago";
    return age > 3600 ? finding{warning, text, "is anybody at home?"} : finding{fine, text, ""};
}

finding check_tables(const evidence &seen)
{
    u32 full = seen[counter_app_table_full] + seen[platform_neighbours_table_full];
    if (seen[counter_no_memory] + seen[platform_no_memory])
        return {fault, "the box ran out of memory", "find what takes it; a restart of the daemon frees little"};
    return expect_none(full, "entries without room in a table",
                       "a device holds 110 apps until it leaves; let it come on line again");
}

finding check_pushes(const evidence &seen)
{
    u32 lost = seen[counter_pushes_failed] + seen[platform_spool_failed];
    if (lost)
        return {warning, number(lost) + " pushes did not go out", "is there room in the runtime directory?"};
    if (seen[counter_pushes] == 0)
        return {seen[counter_hits_tracked] ? warning : fine, "none yet", "a history push follows when an app is left"};
    return {fine, number(seen[counter_pushes]) + ", the last " + time_text(static_cast<time_t>(seen[counter_last_push_time])),
            ""};
}

finding check_disk(const evidence &seen)
{
    constexpr unsigned long long least = 1024 * 1024;
    struct statvfs disk = {};
    if (statvfs(seen.where.state_dir.c_str(), &disk) != 0)
        return {fault, seen.where.state_dir + ": " + strerror(errno), "make the directory, or name another as \"state_dir\""};
    unsigned long long room = static_cast<unsigned long long>(disk.f_bavail) * disk.f_frsize;
    std::string text = std::to_string(room / 1024) + " KiB free in " + seen.where.state_dir;
    return room < least ? finding{room ? warning : fault, text, "make room; settings cannot be saved on a full disk"}
                        : finding{fine, text, ""};
}

finding check_log(const evidence &seen)
{
    constexpr time_t silent = 180; // the daemon writes every minute
    struct stat status = {};
    if (stat(seen.where.log.c_str(), &status) != 0)
        return {warning, seen.where.log + ": " + strerror(errno), "is its directory writable? the lines go to standard output"};
    time_t age = std::max<time_t>(seen.now - status.st_mtime, 0);
    std::string text = std::to_string(status.st_size / 1024) + " KiB, last line " + span_text(age) + " ago";
    return seen.state == daemon_serving && age > silent
               ? finding{fault, text, "the daemon hangs or its disk is full; restart it and report this"}
               : finding{fine, text, ""};
}

struct check {
    const char *name;
    finding (*look)(const evidence &);
    enum { always, after_a_run, with_a_feed } when; // it says something
};
constexpr check checks[] = {
    {"daemon", check_daemon, check::always},
    {"socket", check_socket, check::always},
    {"settings", check_settings, check::always},
    {"clock", check_clock, check::always},
    {"owners", check_owners, check::after_a_run},
    {"LAN", check_lan, check::always},
    {"neighbours", check_neighbours, check::always},
    {"roster", check_roster, check::after_a_run},
    {"devices", check_roles, check::always},
    {"feed", check_feed, check::after_a_run},
    {"feed's input", check_feed_losses, check::with_a_feed},
    {"feed's tables", check_feed_tables, check::with_a_feed},
    {"offloading", check_offloading, check::with_a_feed},
    {"app rules", check_app_rules, check::with_a_feed},
    {"traffic", check_traffic, check::after_a_run},
    {"decoding", check_decoding, check::after_a_run},
    {"unknown MACs", check_unknown_macs, check::after_a_run},
    {"untracked devices", check_unknown_devices, check::after_a_run},
    {"losses", check_lost, check::after_a_run},
    {"records", check_records, check::after_a_run},
    {"tables", check_tables, check::after_a_run},
    {"pushes", check_pushes, check::after_a_run},
    {"disk", check_disk, check::always},
    {"log", check_log, check::after_a_run},
};

// A harmless question: what does a device use that nobody has?
bool probe(const places &where)
{
    client_request request = {};
    request.id = APPIDENT_GET_CUR_DEVICE_APP;
    request.device = "00-00-00-00-00-00";
    client_answer answer = {};
    return call_daemon(where.socket.c_str(), where.timeout_ms, request, &answer) == request_done;
}

void print_finding(const call &what, const char *name, const finding &found, cJSON *list)
{
    if (!given(what.line, option_json)) {
        printf("%-7s  %-17s  %s\n", severity_names[found.level], name, printable(found.text).c_str());
        if (found.level != fine)
            printf("%28s%s\n", "-> ", found.advice.c_str());
        return;
    }
    cJSON *entry = cJSON_CreateObject();
    cJSON_AddStringToObject(entry, "check", name);
    cJSON_AddStringToObject(entry, "level", found.level == fault ? "fault" : severity_names[found.level]);
    cJSON_AddStringToObject(entry, "text", found.text.c_str());
    cJSON_AddStringToObject(entry, "advice", found.level == fine ? "" : found.advice.c_str());
    cJSON_AddItemToArray(list, entry);
}

// What a new household has still to do, in order. Only what is not done yet, and nothing on a box where all is done.
void print_first_steps(const evidence &seen)
{
    const struct {
        bool done;
        const char *step;
    } steps[] = {
        {seen.reachable || seen.state == daemon_starting, "start the daemon"},
        {seen.feed_runs() || (seen.own.found && accounting_messages(seen) > 0),
         "let something tell it the apps: install and start appident-feed, or load a vendor's module"},
        {watched_devices(seen) > 0,
         "name the devices and watch some: appidentctl device ADDRESS --name \"Ben's tablet\" --role 1"},
        {seen[counter_hits_tracked] > 0,
         "use a watched device for some minutes, and see appident-home's page (port 8480 of this box) or 'appidentctl today'"},
    };
    bool any = false;
    for (const auto &one : steps) {
        if (one.done)
            continue;
        if (!any)
            puts("\nLeft to do, in this order:");
        any = true;
        printf("  - %s\n", one.step);
    }
}

} // namespace

int run_doctor(const call &what)
{
    evidence seen = {what.where,
                     read_counters(what.where.counters),
                     read_counters(what.where.platform_counters),
                     read_counters(what.where.feed_counters),
                     daemon_unseen,
                     read_household(what.where),
                     time(nullptr),
                     false};
    seen.state = state_of(seen.own);
    seen.reachable = seen.state != daemon_starting && probe(what.where);
    severity worst = fine;
    json_tree root(cJSON_CreateObject());
    cJSON *list = cJSON_AddArrayToObject(root.get(), "checks");
    for (const check &one : checks) {
        if ((one.when == check::after_a_run && !seen.own.found) || (one.when == check::with_a_feed && !seen.feed.found))
            continue;
        finding found = one.look(seen);
        worst = std::max(worst, found.level);
        print_finding(what, one.name, found, list);
    }
    if (given(what.line, option_json))
        print_json(root.get());
    else
        print_first_steps(seen);
    if (!seen.reachable)
        return exit_unreachable;
    return worst == fault ? exit_fault : worst == warning ? exit_warning : exit_done;
}
