#include "home/command_line.h"

#include <getopt.h>
#include <stdio.h>

namespace {

struct option_text {
    const char *name, *value, *help; // value: null for an option that takes none
};

// In the order of option_id.
constexpr option_text texts[] = {
    {"backup", "FILE", "copy the database to FILE, also while the program runs"},
    {"database", "FILE", "the database, instead of the one in the settings"},
    {"day", "YYYY-MM-DD", "with --report: from that day on, and that day only without --until"},
    {"forget", "MAC", "erase a device and its history"},
    {"help", nullptr, "show this"},
    {"import", "SPOOL", "take a file of pushes into the database and end"},
    {"json", nullptr, "with --report: JSON for programs"},
    {"kind", "KIND", "with --password: parent, child or technician"},
    {"password", "NAME", "set who may log in to the page; asks for the password"},
    {"person", "NAME", "with --password: whose devices a child sees"},
    {"report", nullptr, "print sessions and the days' sums"},
    {"restore", "FILE", "put a copy in place of the database, after checking it"},
    {"settings", "FILE", "settings, instead of /etc/appident/home.json"},
    {"until", "YYYY-MM-DD", "with --day: up to the end of this day"},
    {"version", nullptr, "show the version"},
};
static_assert(sizeof(texts) / sizeof(*texts) == option_end, "a line for each option");

constexpr int option_base = 256;

} // namespace

bool read_command_line(int argc, char **argv, given_options *given)
{
    option options[option_end + 1] = {};
    for (size_t id = 0; id < option_end; ++id)
        options[id] = {texts[id].name, texts[id].value ? required_argument : no_argument, nullptr,
                       option_base + static_cast<int>(id)};
    given->fill(nullptr);
    for (int found = 0; (found = getopt_long(argc, argv, "h", options, nullptr)) != -1;) {
        if (found == '?')
            return false;
        (*given)[static_cast<size_t>(found == 'h' ? static_cast<int>(option_help) : found - option_base)] =
            optarg ? optarg : "";
    }
    if (optind < argc)
        fprintf(stderr, "appident-home: what is '%s'? See --help.\n", argv[optind]);
    return optind == argc;
}

void print_help()
{
    puts("usage: appident-home [OPTION...]\n\n"
         "Keeps the history of which applications the household uses, and serves the page. Without\n"
         "--import, --report, --backup, --restore, --forget or --password it follows the daemon's pushes until it is ended.\n");
    for (const option_text &one : texts)
        printf("  --%-9s%-12s%s\n", one.name, one.value ? one.value : "", one.help);
}
