// appidentctl: asks the daemon on this box and tells people or programs what it says.
#include "tools/appidentctl/command_line.h"
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/exit_codes.h"

#include <locale.h>
#include <stdio.h>

namespace {

// What was asked for has not been said when standard output could not take it.
int told(int code)
{
    if (fflush(stdout) == 0 && !ferror(stdout))
        return code;
    perror("appidentctl: standard output");
    return exit_unwritable;
}

} // namespace

int main(int argc, char **argv)
{
    setlocale(LC_CTYPE, "C.UTF-8"); // names are UTF-8 whatever the terminal's language; this makes their width known
    command_line line;
    if (!read_command_line(argc, argv, &line))
        return exit_usage;
    places where;
    if (given(line, option_version))
        return told(run_version({line, where}));
    if (given(line, option_help)) {
        print_help(line.about, given(line, option_json));
        return told(exit_done);
    }
    if (!line.about)
        return usage_error(line, "no command given");
    return find_places(line, &where) ? told(line.about->run({line, where})) : exit_usage;
}
