// The running program: its parts put together on the one loop.
#ifndef HOME_SERVE_H
#define HOME_SERVE_H

#include "home/app_names.h"
#include "home/daemon_truth.h"
#include "home/device_limits.h"
#include "home/home_settings.h"
#include "home/loop.h"
#include "home/metrics.h"
#include "home/notices.h"
#include "home/spool_follower.h"

struct mqtt;

// What every part may use; it outlives them all.
struct household {
    const home_settings *settings = nullptr;
    history all;
    spool_follower spool;
    daemon_truth truth;
    app_names apps;
    bool asked_to_commit = false; // by SIGHUP, and not done yet
    metrics_state metrics;
    std::vector<notice_way *> ways;             // those that are on
    std::map<std::string, known_limits> limits; // by MAC, as the daemon had them a minute ago
    mqtt *broker = nullptr;                     // null: off
    loop parts;
};

// Until SIGTERM or SIGINT. SIGHUP writes what waits for the next commit. False with the reason when it cannot begin.
bool serve(const home_settings &settings, std::string *why);

#endif
