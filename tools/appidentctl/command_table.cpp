// The table of commands.
#include "tools/appidentctl/command_line.h"
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/exit_codes.h"

#include <stdio.h>

namespace {

// Offered by no help and no completion: the shell's completion calls it.
constexpr const char *hidden_command = "complete";

} // namespace

const std::vector<command> &all_commands()
{
    static const std::vector<command> commands = {
        {"devices", no_operand, run_devices, "who is on the LAN, and what each device uses", {}},
        {"device",
         one_device,
         run_device,
         "show or change one device",
         {{option_name, "call it so; \"\" takes the name away"},
          {option_role, "0: not watched, 1: watched with limits, 2: watched without limits"},
          {option_yes, "do not ask before role 0 deletes its settings"}}},
        {"today",
         maybe_device,
         run_today,
         "minutes of today for each app and class",
         {{option_database, "a database of appident-home's, instead of the one in its settings"}}},
        {"history",
         one_device,
         run_history,
         "what a device used on a day or in a week",
         {{option_day, "that day, instead of today"},
          {option_week, "today and the six days before"},
          {option_by, "sums of each day by app or by class, instead of sessions"},
          {option_csv, "lines for a spreadsheet"},
          {option_database, "a database of appident-home's, instead of the one in its settings"}}},
        {"apps",
         maybe_device,
         run_apps,
         "what devices use right now",
         {{option_all, "every device that is on line"},
          {option_devices, "these devices"},
          {option_rom, "also apps in their first minute"}}},
        {"limits",
         one_device,
         run_limits,
         "show or store a device's use-time limits",
         {{option_set_file, "store the limits of a JSON file (- for standard input); classes it leaves out are off"},
          {option_class, "change this class (1 to 5 or its name) and keep the others as stored"},
          {option_minutes, "minutes of use that the class allows, at most 1440; as stored when left out"},
          {option_apps, "apps that count, names or numbers, or \"all\" for every app of the class; as stored when left out"},
          {option_on, "the class is watched (the default)"},
          {option_off, "the class is not watched"},
          {option_others_off, "do not read what is stored: write all other classes off"}}},
        {"payments",
         one_device,
         run_payments,
         "show or store a device's payment-alert switches",
         {{option_set_switches, "switch enable, weixin, alipay, qqpay or applepay on or off, keep the others as stored"},
          {option_all_off, "switch everything off"}}},
        {"pushes",
         no_operand,
         run_pushes,
         "what the daemon told the household",
         {{option_follow, "print pushes as they come, until interrupted, instead of those in the spool"},
          {option_device, "only those about this device"},
          {option_code, "only those of this kind, such as history or 1008"}}},
        {"catalogue",
         no_operand,
         run_catalogue,
         "the apps that are known, with their numbers and classes",
         {{option_class, "only the apps of this class"}}},
        {"status",
         no_operand,
         run_status,
         "is it up, what came in, what was dropped",
         {{option_all, "every counter of the daemon, of the platform library and of the feed"}}},
        {"doctor",
         no_operand,
         run_doctor,
         "why is there no data, and what is left to do",
         {{option_log, "the daemon's log (/tmp/appident.log)"}}},
        {"help", maybe_command, run_help, "what a command does and takes", {}},
        {"version", no_operand, run_version, "the version of this program", {}},
        {hidden_command, any_words, run_complete, "words that may stand where the last one is being typed", {}},
    };
    return commands;
}

const std::vector<command_option> &common_options()
{
    static const std::vector<command_option> list = {
        {option_json, "JSON for programs instead of a table for people"},
        {option_socket, "the daemon's request socket (/tmp/.appident.ipc)"},
        {option_timeout, "how long to wait for an answer, fractions allowed (3)"},
        {option_settings, "the platform settings (/etc/appident/platform.json)"},
        {option_counters, "the daemon's counters (/tmp/.appident.counters)"},
        {option_feed_counters, "the feed's counters (/var/run/appident-feed/feed.counters)"},
        {option_help, "this text"},
        {option_version, "the version of this program"},
    };
    return list;
}

const command *find_command(const std::string &name)
{
    for (const command &one : all_commands())
        if (name == one.name)
            return &one;
    return nullptr;
}

int run_version(const call &what)
{
    puts(given(what.line, option_json) ? "{\"version\":\"" APPIDENT_VERSION "\"}" : "appidentctl " APPIDENT_VERSION);
    return exit_done;
}
