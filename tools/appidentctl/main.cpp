// appidentctl: asks the daemon on this box and tells people or programs what it says.
#include "tools/appidentctl/command_line.h"
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/device_text.h"
#include "tools/appidentctl/exit_codes.h"

#include <stdio.h>
#include <string.h>

namespace {

enum operand { no_device, maybe_device, one_device };

struct command {
    const char *name;
    operand device;
    u32 options; // besides those that every command takes
    int (*run)(const call &);
    const char *synopsis;
    const char *summary;
    const char *help;
};

constexpr u32 common_options = option_bit(option_socket) | option_bit(option_timeout) | option_bit(option_json) |
                               option_bit(option_settings) | option_bit(option_counters) | option_bit(option_help) |
                               option_bit(option_version);

constexpr command commands[] = {
    {"apps", maybe_device, option_bit(option_all) | option_bit(option_devices) | option_bit(option_rom), run_apps,
     "MAC [--rom] | --all [--rom] | --devices MAC,MAC... [--rom]", "what devices use right now",
     "  --all           every device that the roster says is on line\n"
     "  --devices LIST  these devices, MACs joined by commas\n"
     "  --rom           also apps in their first minute\n"},
    {"limits", one_device,
     option_bit(option_set) | option_bit(option_class) | option_bit(option_minutes) | option_bit(option_apps) |
         option_bit(option_on) | option_bit(option_off) | option_bit(option_others_off),
     run_limits, "MAC [--set FILE | --class N [--minutes M] [--apps ID,ID...] [--on | --off] [--others-off]]",
     "show or store a device's use-time limits",
     "  --set FILE      store the limits of a JSON file (- for standard input); classes it leaves out are off\n"
     "  --class N       change class N (1 to 5) and keep the others as stored\n"
     "  --minutes M     minutes of use that the class allows; as stored when left out\n"
     "  --apps LIST     app ids that count, joined by commas; as stored when left out\n"
     "  --on, --off     whether the class is watched; on when left out\n"
     "  --others-off    do not read what is stored: write all other classes off\n"},
    {"payments", one_device, option_bit(option_set) | option_bit(option_all_off), run_payments,
     "MAC [--set NAME=on|off,... | --all-off]", "show or store a device's payment-alert switches",
     "  --set LIST      switch enable, weixin, alipay, qqpay or applepay on or off, keep the others as stored\n"
     "  --all-off       switch everything off\n"},
    {"pushes", no_device, option_bit(option_follow), run_pushes, "[--follow]", "what the daemon told the household",
     "  --follow        print pushes as they come, until interrupted, instead of those in the spool\n"},
    {"status", no_device, 0, run_status, "", "what came in, what was dropped and why", ""},
    {"doctor", no_device, option_bit(option_log), run_doctor, "[--log FILE]", "why is there no data?",
     "  --log FILE      the daemon's log (/tmp/appident.log)\n"},
};

constexpr const char common_help[] = "  --json          JSON for programs instead of a table for people\n"
                                     "  --socket PATH   the daemon's request socket (/tmp/.appident.ipc)\n"
                                     "  --timeout S     seconds to wait for an answer, fractions allowed (3)\n"
                                     "  --settings FILE the platform settings (/etc/appident/platform.json)\n"
                                     "  --counters FILE the daemon's counters (/tmp/.appident.counters)\n"
                                     "  --help, --version\n";

const command *find_command(const char *name)
{
    for (const command &one : commands)
        if (name && strcmp(one.name, name) == 0)
            return &one;
    return nullptr;
}

void print_help(const command *about)
{
    if (about) {
        printf("Usage: appidentctl %s%s%s\n%s.\n\n%s%s", about->name, *about->synopsis ? " " : "", about->synopsis,
               about->summary, about->help, common_help);
        return;
    }
    puts("Usage: appidentctl COMMAND [OPTION]...\nAsks the appident daemon on this box.\n");
    for (const command &one : commands)
        printf("  %-9s %s\n", one.name, one.summary);
    printf("\n%s\nA MAC may be written in any common form. 'appidentctl COMMAND --help' tells a command's options.\n"
           "Exit code: 0 done, 1 refused, 2 usage, 3 daemon not reachable; doctor: 4 warning, 5 fault.\n",
           common_help);
}

int check_options(const command_line &line, const command &about)
{
    u32 strange = given_options(line) & ~(about.options | common_options);
    for (unsigned int id = 0; id < option_end; id++)
        if (strange & 1u << id)
            return usage_error(line, "%s does not take --%s", about.name, option_name(static_cast<option_id>(id)));
    size_t most = about.device == no_device ? 0 : 1;
    if (line.operands.size() > most)
        return usage_error(line, "'%s' is one word too many", line.operands[most].c_str());
    if (about.device == one_device && line.operands.empty())
        return usage_error(line, "%s needs the MAC of a device", about.name);
    return exit_done;
}

} // namespace

int main(int argc, char **argv)
{
    command_line line;
    if (!read_command_line(argc, argv, &line))
        return usage_error(line, "that option is not known, or lacks its value");
    if (given(line, option_version)) {
        puts("appidentctl " APPIDENT_VERSION);
        return exit_done;
    }
    const command *about = find_command(line.command);
    if (given(line, option_help) && (about || !line.command)) {
        print_help(about);
        return exit_done;
    }
    if (!about)
        return line.command ? usage_error({}, "'%s' is no command", line.command) : usage_error(line, "no command given");
    int code = check_options(line, *about);
    if (code != exit_done)
        return code;
    std::string device = line.operands.empty() ? "" : device_text(line.operands[0]);
    if (!line.operands.empty() && device.empty())
        return usage_error(line, "'%s' is no MAC", line.operands[0].c_str());
    places where;
    return find_places(line, &where) ? about->run({line, where, device}) : exit_usage;
}
