// What the tool can do, a function for each command. Each returns an exit code.
//
// device is the MAC text of the operand, empty where the command was given none.
#ifndef APPIDENTCTL_COMMANDS_H
#define APPIDENTCTL_COMMANDS_H

#include "tools/appidentctl/command_line.h"
#include "tools/appidentctl/places.h"

struct call {
    const command_line &line;
    const places &where;
    std::string device;
};

int run_apps(const call &what);
int run_limits(const call &what);
int run_payments(const call &what);
int run_pushes(const call &what);
int run_status(const call &what);
int run_doctor(const call &what);

#endif
