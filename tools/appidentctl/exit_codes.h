// What the tool's exit code tells a script.
#ifndef APPIDENTCTL_EXIT_CODES_H
#define APPIDENTCTL_EXIT_CODES_H

enum exit_code {
    exit_done = 0,
    exit_refused = 1,     // the daemon said no, or did not do what it was asked
    exit_usage = 2,       // the command line or a file it names makes no sense
    exit_unreachable = 3, // no daemon or history, still starting, no right to it, or no answer in time
    exit_warning = 4,     // doctor: something deserves a look
    exit_fault = 5,       // doctor: something keeps data from coming
    exit_unwritable = 6,  // standard output could not take what was asked for
};

#endif
