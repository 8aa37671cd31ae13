// What the daemon keeps of a device, asked and changed on behalf of a person: limits, payment switches, name and role.
//
// Each change is read back: the daemon reports success also where it stores nothing. A question waits two seconds at most,
// during which the loop stands still.
#ifndef HOME_DAEMON_SETTINGS_H
#define HOME_DAEMON_SETTINGS_H

#include "common/sec_plg_common.h"
#include "home/serve.h"
#include "platform/linux/client/json_text.h"

// The device's stored limits, an array within the tree; null where none are stored or its role is not 1. False when the daemon
// does not answer.
bool read_limits(const household &home, const std::string &mac, json_tree *tree, const cJSON **limits);
// False when the daemon does not store them as given.
bool write_limits(const household &home, const std::string &mac, const cJSON *limits);

bool read_payments(const household &home, const std::string &mac, appident_payment_notify_st *switches);
bool write_payments(const household &home, const std::string &mac, const appident_payment_notify_st &switches);

// Has the platform library change the name (null: not) and the role (-1: not), and takes in what it says then.
bool write_device(household *home, const std::string &mac, const std::string *name, int64_t role);

#endif
