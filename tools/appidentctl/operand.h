// The device that a command is about.
#ifndef APPIDENTCTL_OPERAND_H
#define APPIDENTCTL_OPERAND_H

#include "tools/appidentctl/command_line.h"
#include "tools/appidentctl/household.h"

// The MAC text of the command's operand; empty where there is none, or it names no device: then it was said on standard error.
inline std::string operand_device(const call &what, const household &known)
{
    return what.line.operands.empty() ? "" : device_from_words(what.line, known, what.line.operands[0]);
}

#endif
