// The command line: which commands there are, which options each takes, and what was given of them.
//
// Names, values and help of commands and options stand in two tables (command_line.cpp, command_table.cpp); parsing, help and
// completion all come from these. A wrong command line is told on standard error; the caller ends with exit_usage.
#ifndef APPIDENTCTL_COMMAND_LINE_H
#define APPIDENTCTL_COMMAND_LINE_H

#include "igd/igd_types.h"

#include <array>
#include <string>
#include <vector>

// --set stands twice: its value depends on the command.
enum option_id : unsigned int {
    option_all,
    option_all_off,
    option_app,
    option_apps,
    option_by,
    option_class,
    option_code,
    option_counters,
    option_csv,
    option_database,
    option_day,
    option_device,
    option_devices,
    option_feed_counters,
    option_follow,
    option_help,
    option_json,
    option_log,
    option_minutes,
    option_name,
    option_off,
    option_on,
    option_others_off,
    option_role,
    option_rom,
    option_set_file,
    option_set_switches,
    option_settings,
    option_socket,
    option_timeout,
    option_version,
    option_week,
    option_yes,
    option_end
};

enum value_kind {
    no_value,
    value_path,
    value_device,
    value_devices,
    value_app,
    value_apps,
    value_by,
    value_class,
    value_day,
    value_kind_of_push,
    value_role,
    value_minutes,
    value_seconds,
    value_switches,
    value_text,
};

struct option_about {
    option_id id;
    const char *name;
    value_kind value;
};
const option_about &about_option(option_id id);
// The word that stands for a value in help, such as "FILE"; null for no_value.
const char *value_word(value_kind kind);

struct command_line;
struct places;

struct call {
    const command_line &line;
    const places &where;
};

struct command_option {
    option_id id;
    const char *help;
};

enum operand { no_operand, maybe_device, one_device, maybe_command, any_words };

struct command {
    const char *name;
    operand takes;
    int (*run)(const call &); // returns an exit code
    const char *summary;
    std::vector<command_option> options; // besides those that every command takes
};
const std::vector<command> &all_commands();
const std::vector<command_option> &common_options();
const command *find_command(const std::string &name);

struct command_line {
    const command *about = nullptr; // null when none was given
    std::vector<std::string> operands;
    std::array<const char *, option_end> value = {}; // null: not given; "" for an option that takes no value
};

// False after saying on standard error what is wrong.
bool read_command_line(int argc, char **argv, command_line *line);

inline bool given(const command_line &line, option_id id)
{
    return line.value[id] != nullptr;
}

// Help of a command, or of the tool where it is null, on standard output.
void print_help(const command *about, bool as_json);

// A whole decimal number within the bounds.
bool read_number(const std::string &text, u32 least, u32 most, u32 *number);
// Seconds with a fraction, above 0 and up to an hour, in milliseconds.
bool read_seconds(const char *text, int *milliseconds);
std::vector<std::string> split(const std::string &text, char at);

// Says what is wrong on standard error and returns exit_usage.
int usage_error(const command_line &line, const char *format, ...) __attribute__((format(printf, 2, 3)));

#endif
