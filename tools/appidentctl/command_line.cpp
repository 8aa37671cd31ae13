#include "tools/appidentctl/command_line.h"

#include "tools/appidentctl/exit_codes.h"

#include <errno.h>
#include <getopt.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr int unknown_option = '?';

// In the order of option_id; getopt_long hands back option_base and the place.
constexpr int option_base = 256;
const option long_options[option_end + 1] = {
    {"all", no_argument, nullptr, option_base + option_all},
    {"all-off", no_argument, nullptr, option_base + option_all_off},
    {"apps", required_argument, nullptr, option_base + option_apps},
    {"class", required_argument, nullptr, option_base + option_class},
    {"counters", required_argument, nullptr, option_base + option_counters},
    {"devices", required_argument, nullptr, option_base + option_devices},
    {"follow", no_argument, nullptr, option_base + option_follow},
    {"help", no_argument, nullptr, option_base + option_help},
    {"json", no_argument, nullptr, option_base + option_json},
    {"log", required_argument, nullptr, option_base + option_log},
    {"minutes", required_argument, nullptr, option_base + option_minutes},
    {"off", no_argument, nullptr, option_base + option_off},
    {"on", no_argument, nullptr, option_base + option_on},
    {"others-off", no_argument, nullptr, option_base + option_others_off},
    {"rom", no_argument, nullptr, option_base + option_rom},
    {"set", required_argument, nullptr, option_base + option_set},
    {"settings", required_argument, nullptr, option_base + option_settings},
    {"socket", required_argument, nullptr, option_base + option_socket},
    {"timeout", required_argument, nullptr, option_base + option_timeout},
    {"version", no_argument, nullptr, option_base + option_version},
    {nullptr, 0, nullptr, 0},
};

} // namespace

const char *option_name(option_id id)
{
    return long_options[id].name;
}

bool read_command_line(int argc, char **argv, command_line *line)
{
    line->command = nullptr;
    line->value.fill(nullptr);
    for (int found = 0; (found = getopt_long(argc, argv, "h", long_options, nullptr)) != -1;) {
        if (found == unknown_option)
            return false;
        unsigned int id = found == 'h' ? option_help : static_cast<unsigned int>(found - option_base);
        line->value[id] = optarg ? optarg : "";
    }
    if (optind < argc)
        line->command = argv[optind++];
    line->operands.assign(argv + optind, argv + argc);
    return true;
}

u32 given_options(const command_line &line)
{
    u32 set = 0;
    for (unsigned int id = 0; id < option_end; id++)
        set |= line.value[id] ? 1u << id : 0;
    return set;
}

bool read_number(const char *text, u32 least, u32 most, u32 *number)
{
    char *end = nullptr;
    errno = 0;
    unsigned long long value = strtoull(text, &end, 10);
    if (text[0] < '0' || text[0] > '9' || *end || errno || value < least || value > most)
        return false;
    *number = static_cast<u32>(value);
    return true;
}

bool read_seconds(const char *text, int *milliseconds)
{
    char *end = nullptr;
    double seconds = strtod(text, &end);
    if (end == text || *end || !(seconds >= 0.001 && seconds <= 3600))
        return false;
    *milliseconds = static_cast<int>(seconds * 1000);
    return true;
}

std::vector<std::string> split(const std::string &text, char at)
{
    std::vector<std::string> pieces;
    size_t begin = 0;
    for (size_t end = 0; (end = text.find(at, begin)) != std::string::npos; begin = end + 1)
        pieces.push_back(text.substr(begin, end - begin));
    pieces.push_back(text.substr(begin));
    return pieces;
}

int usage_error(const command_line &line, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    fputs("appidentctl: ", stderr);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    fprintf(stderr, "\nTry 'appidentctl %s%s--help'.\n", line.command ? line.command : "", line.command ? " " : "");
    return exit_usage;
}
