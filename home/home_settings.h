// What the owner may set: /etc/appident/home.json. A missing file or key gives the default; a value of the wrong kind or beyond
// its bounds is said on standard error and gives the default too.
#ifndef HOME_HOME_SETTINGS_H
#define HOME_HOME_SETTINGS_H

#include "common/guards.h"

#include <stdint.h>

#include <string>

constexpr const char *home_settings_default_path = "/etc/appident/home.json";

struct home_settings {
    std::string database = "/var/lib/appident-home/home.db";
    std::string runtime_dir = "/run/appident"; // the daemon's: spool and its bell
    std::string request_socket = "/tmp/.appident.ipc";
    std::string installed_catalogue = APPIDENT_DATADIR "/catalogue.json"; // names and classes of apps
    std::string catalogue = "/var/lib/appident/catalogue.json";           // the owner's; it holds where both name an app
    std::string listen;                                                   // address of the page; empty: the LAN's own
    int64_t port = 8480;
    int64_t commit_interval = 15; // seconds; 300 spares flash
    int64_t session_days = 90;    // how long sessions, alerts and gaps are kept
    int64_t day_years = 10;       // how long the days' sums are
    json_tree tree;               // the whole file, for the settings of other parts ("web", "mqtt", ...); null without one
};

// False, having said why, when the file is there and cannot be read or is no JSON object.
bool read_home_settings(const char *path, home_settings *settings);

#endif
