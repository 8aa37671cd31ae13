// What decides, before anything is touched, whether this process is to serve at all.
#ifndef PLATFORM_LINUX_INSTANCE_H
#define PLATFORM_LINUX_INSTANCE_H

// Answers --help and --version and ends the process then. The daemon's main takes no arguments, so they are read from the
// kernel.
void answer_command_line();
// Takes the lock runtime_dir/lock, held until the process ends. False, after a line on standard error, when another process
// holds it. Where no lock can be made the process goes on without.
bool take_instance_lock();
// Whether take_instance_lock said no.
bool instance_refused();

#endif
