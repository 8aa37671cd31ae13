#include "tools/appidentctl/command_line.h"

#include "tools/appidentctl/exit_codes.h"

#include <errno.h>
#include <getopt.h>
#include <iterator>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr option_about options[] = {
    {option_all, "all", no_value},
    {option_all_off, "all-off", no_value},
    {option_app, "app", value_app},
    {option_apps, "apps", value_apps},
    {option_by, "by", value_by},
    {option_class, "class", value_class},
    {option_code, "code", value_kind_of_push},
    {option_counters, "counters", value_path},
    {option_csv, "csv", no_value},
    {option_database, "database", value_path},
    {option_day, "day", value_day},
    {option_device, "device", value_device},
    {option_devices, "devices", value_devices},
    {option_feed_counters, "feed-counters", value_path},
    {option_follow, "follow", no_value},
    {option_help, "help", no_value},
    {option_json, "json", no_value},
    {option_log, "log", value_path},
    {option_minutes, "minutes", value_minutes},
    {option_name, "name", value_text},
    {option_off, "off", no_value},
    {option_on, "on", no_value},
    {option_others_off, "others-off", no_value},
    {option_role, "role", value_role},
    {option_rom, "rom", no_value},
    {option_set_file, "set", value_path},
    {option_set_switches, "set", value_switches},
    {option_settings, "settings", value_path},
    {option_socket, "socket", value_path},
    {option_timeout, "timeout", value_seconds},
    {option_version, "version", no_value},
    {option_week, "week", no_value},
    {option_yes, "yes", no_value},
};

constexpr bool in_order()
{
    for (unsigned int i = 0; i < std::size(options); i++)
        if (options[i].id != i)
            return false;
    return std::size(options) == option_end;
}
static_assert(in_order(), "the table has the order of option_id");

// What getopt_long returns for the first option of the table.
constexpr int option_base = 256;

// The options for getopt_long: the common ones, and those of a command where it is given.
std::vector<option> getopt_options(const command *about)
{
    std::vector<option> list;
    auto add = [&](const command_option &one) {
        const option_about &entry = options[one.id];
        int argument = entry.value == no_value ? no_argument : required_argument;
        list.push_back({entry.name, argument, nullptr, option_base + static_cast<int>(one.id)});
    };
    for (const command_option &one : common_options())
        add(one);
    if (about)
        for (const command_option &one : about->options)
            add(one);
    list.push_back({nullptr, 0, nullptr, 0});
    return list;
}

// Reads options up to the command's name, or those that follow it. `words` begins with a word that is no option.
bool read_options(int count, char **words, const char *short_options, command_line *line)
{
    std::vector<option> known = getopt_options(line->about);
    optind = 0; // begin anew
    opterr = 0;
    for (int found = 0; (found = getopt_long(count, words, short_options, known.data(), nullptr)) != -1;) {
        if (found == ':' || found == '?') {
            // In a word such as "-json" it is a letter; optind moves only behind the word.
            const char letter[] = {'-', static_cast<char>(optopt), 0};
            const char *word = optopt > 0 && optopt < option_base ? letter : words[optind - 1];
            if (found == ':')
                usage_error(*line, "%s lacks its value", word);
            else
                usage_error(*line, "%s does not take %s", line->about ? line->about->name : "appidentctl", word);
            return false;
        }
        unsigned int id = found == 'h' ? option_help : static_cast<unsigned int>(found - option_base);
        line->value[id] = optarg ? optarg : "";
    }
    return true;
}

} // namespace

const option_about &about_option(option_id id)
{
    return options[id];
}

const char *value_word(value_kind kind)
{
    constexpr const char *words[] = {nullptr,   "FILE",      "DEVICE",  "DEVICE,...",      "APP",
                                     "APP,...", "app|class", "CLASS",   "YYYY-MM-DD",      "KIND",
                                     "ROLE",    "MINUTES",   "SECONDS", "NAME=on|off,...", "TEXT"};
    return words[kind];
}

bool read_command_line(int argc, char **argv, command_line *line)
{
    if (!read_options(argc, argv, "+:h", line))
        return false;
    if (optind == argc)
        return true;
    int place = optind;
    line->about = find_command(argv[place]);
    if (!line->about) {
        usage_error(*line, "'%s' is no command", argv[place]);
        return false;
    }
    if (line->about->takes == any_words) {
        line->operands.assign(argv + place + 1, argv + argc);
        return true;
    }
    if (!read_options(argc - place, argv + place, ":h", line))
        return false;
    line->operands.assign(argv + place + optind, argv + argc);
    size_t most = line->about->takes == no_operand ? 0 : 1;
    if (line->operands.size() > most) {
        usage_error(*line, "'%s' is one word too many; a name of several words wants quotes", line->operands[most].c_str());
        return false;
    }
    if (line->about->takes == one_device && line->operands.empty() && !given(*line, option_help)) {
        usage_error(*line, "%s needs a device: its name, address or MAC", line->about->name);
        return false;
    }
    return true;
}

bool read_number(const std::string &text, u32 least, u32 most, u32 *number)
{
    char *end = nullptr;
    errno = 0;
    unsigned long long value = strtoull(text.c_str(), &end, 10);
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
    fprintf(stderr, "\nTry 'appidentctl %s%s--help'.\n", line.about ? line.about->name : "", line.about ? " " : "");
    return exit_usage;
}
