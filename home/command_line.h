// The command line of appident-home: one table of options, from which the help is made too.
#ifndef HOME_COMMAND_LINE_H
#define HOME_COMMAND_LINE_H

#include <array>

enum option_id : unsigned int {
    option_backup,
    option_database,
    option_day,
    option_forget,
    option_help,
    option_import,
    option_json,
    option_kind,
    option_password,
    option_person,
    option_report,
    option_restore,
    option_settings,
    option_until,
    option_version,
    option_end
};

using given_options = std::array<const char *, option_end>; // null: not given; "" for one that takes no value

// False, having said why, for a command line that makes no sense.
bool read_command_line(int argc, char **argv, given_options *given);
void print_help();

#endif
