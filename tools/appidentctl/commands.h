// What the tool can do, a function for each command. Each returns an exit code.
#ifndef APPIDENTCTL_COMMANDS_H
#define APPIDENTCTL_COMMANDS_H

#include "tools/appidentctl/command_line.h"
#include "tools/appidentctl/places.h"

int run_apps(const call &what);
int run_catalogue(const call &what);
int run_complete(const call &what);
int run_device(const call &what);
int run_devices(const call &what);
int run_doctor(const call &what);
int run_history(const call &what);
int run_help(const call &what);
int run_limits(const call &what);
int run_payments(const call &what);
int run_pushes(const call &what);
int run_status(const call &what);
int run_today(const call &what);
int run_version(const call &what);

#endif
