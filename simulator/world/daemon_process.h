// The daemon as a child process of ours: it never outlives us.
#ifndef SIMULATOR_WORLD_DAEMON_PROCESS_H
#define SIMULATOR_WORLD_DAEMON_PROCESS_H

#include "igd/igd_types.h"

#include <string>
#include <sys/types.h>

constexpr const char *request_socket_path = "/tmp/.appident.ipc";
constexpr const char *daemon_log_path = "/tmp/appident.log";

// Starts the program with the household's settings; -1 when it cannot. Its standard output and error stay ours.
pid_t start_daemon(const std::string &path);
bool daemon_runs(pid_t daemon);
// Ends it the way the router does and returns its exit status, or 128 + n for an end by signal n.
int stop_daemon(pid_t daemon);
constexpr int status_after_sigterm = 1;

// A counter of the daemon by name, 0 while there is none.
u32 daemon_counter(const std::string &name);
// Whether its loop serves; false while it starts.
bool daemon_serves();

#endif
