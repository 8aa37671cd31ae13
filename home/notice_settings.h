// What the owner may set about telling others: the objects "webhook", "command" and "mqtt" of the settings.
//
// Each is off unless it is there. One with a wrong value or a key that is not known is off too, and that is said on standard
// error: what tells others about the household must not do something else than the owner meant.
#ifndef HOME_NOTICE_SETTINGS_H
#define HOME_NOTICE_SETTINGS_H

#include "common/guards.h"
#include "igd/igd_types.h"

#include <stdint.h>

#include <string>
#include <vector>

struct notice_kinds {
    std::vector<std::string> names = {"limit", "break", "payment"}; // "first_use" too where it is wanted
    bool wants(const std::string &name) const;
};

struct webhook_settings {
    bool on = false;
    std::string url;
    std::string authorization; // value of that header, "" for none
    std::string ca;            // file of certificates to trust, "" for the system's
    int64_t retry_after = 5;   // seconds after the first failure; doubled with each further one
    notice_kinds kinds;
};

struct command_settings {
    bool on = false;
    std::vector<std::string> run; // program and arguments; no shell comes between
    int64_t time_limit = 30;      // seconds
    notice_kinds kinds;
};

struct mqtt_settings {
    bool on = false;
    std::string host;
    int64_t port = 0; // 0: 1883, with TLS 8883
    std::string user, password;
    bool tls = false;
    std::string ca; // file of certificates to trust, "" for the system's
    std::string id; // of this router; "" for one drawn at random once
    std::string prefix = "appident";
    bool discovery = true;                          // announce the devices to home automation
    std::string discovery_prefix = "homeassistant"; // as docs/home.md says
    bool pushes = true;                             // pass on each push
    bool limits = false;                            // let whoever may write to the broker change limits
    notice_kinds kinds;
};

struct notice_settings {
    webhook_settings webhook;
    command_settings command;
    mqtt_settings mqtt;
};
// `tree`: the whole settings file, null without one.
notice_settings read_notice_settings(const cJSON *tree);

#endif
