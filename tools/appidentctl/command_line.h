// The command line: the table of options and what was given of them.
//
// A wrong command line is told on standard error; the caller ends with exit_usage.
#ifndef APPIDENTCTL_COMMAND_LINE_H
#define APPIDENTCTL_COMMAND_LINE_H

#include "igd/igd_types.h"

#include <array>
#include <string>
#include <vector>

enum option_id : unsigned int {
    option_all,
    option_all_off,
    option_apps,
    option_class,
    option_counters,
    option_devices,
    option_follow,
    option_help,
    option_json,
    option_log,
    option_minutes,
    option_off,
    option_on,
    option_others_off,
    option_rom,
    option_set,
    option_settings,
    option_socket,
    option_timeout,
    option_version,
    option_end
};

// The option as a bit, for the sets of options that the commands take.
constexpr u32 option_bit(option_id id)
{
    return 1u << id;
}

struct command_line {
    const char *command;                        // null when none was given
    std::vector<std::string> operands;          // what follows the command, options aside
    std::array<const char *, option_end> value; // null: not given; "" for an option that takes no value
};

bool read_command_line(int argc, char **argv, command_line *line);

inline bool given(const command_line &line, option_id id)
{
    return line.value[id] != nullptr;
}

// The set of options given, as bits.
u32 given_options(const command_line &line);
const char *option_name(option_id id);

// A whole decimal number within the bounds.
bool read_number(const char *text, u32 least, u32 most, u32 *number);
// Seconds with a fraction, above 0 and up to an hour, in milliseconds.
bool read_seconds(const char *text, int *milliseconds);
std::vector<std::string> split(const std::string &text, char at);

// Says what is wrong on standard error and returns exit_usage.
int usage_error(const command_line &line, const char *format, ...) __attribute__((format(printf, 2, 3)));

#endif
