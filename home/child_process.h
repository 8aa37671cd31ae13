// A program run beside ours, with a text on its standard input and a time limit; the loop never waits for it.
#ifndef HOME_CHILD_PROCESS_H
#define HOME_CHILD_PROCESS_H

#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

struct child_process {
    pid_t id = -1; // -1: none runs
    int64_t deadline_ms = 0;
};

enum child_state {
    child_none,
    child_running,
    child_succeeded, // it ended with 0
    child_failed,    // it ended otherwise, or was killed at its time limit
};

// Starts arguments[0], a whole path, with this environment ("KEY=value") and `input` to read; its own output is dropped, what
// it says on standard error goes to ours. False when it could not be started.
bool start_child(child_process *child, const std::vector<std::string> &arguments, const std::vector<std::string> &environment,
                 const std::string &input, int64_t deadline_ms);
// How it goes; an end is told once. One past its time limit is killed with all that it started.
child_state look_after_child(child_process *child, int64_t now_ms);
// Kills it and what it started.
void end_child(child_process *child);

#endif
