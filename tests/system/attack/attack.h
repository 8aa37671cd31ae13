// Attacks on the running daemon, each a row of the table that scripts/attack prints. All of it happens in namespaces of its
// own, with a private /tmp; the attacker is the user nobody unless a row says otherwise.
#ifndef TESTS_SYSTEM_ATTACK_ATTACK_H
#define TESTS_SYSTEM_ATTACK_ATTACK_H

#include "igd/igd_types.h"
#include "simulator/world/devices_and_apps.h"
#include "tests/kit/waiting.h"

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

struct attack_row {
    std::string what, tried, seen;
    bool held; // the daemon stood
};

// The household: a roster of three devices with a role, whose MACs the kernel knows.
const std::vector<device_entry> &household_devices();

// A process of ours, killed when this goes.
struct child_process {
    explicit child_process(pid_t started) : pid(started) {}
    ~child_process();
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;
    pid_t pid;
};
// The daemon, on a clock that runs `speed` times as fast as life.
pid_t start_fast_daemon(int speed);
// Does it again and again as nobody, until killed.
pid_t start_nobody(const std::function<void()> &act);

// Whether the daemon itself, and nobody else, answers a request within ten seconds.
bool daemon_answers();

attack_row race_for_the_socket();
attack_row plant_before_the_start();
attack_row replace_at_run_time();
attack_row start_once_more();
attack_row flood_the_channel();
attack_row send_many_limits();
attack_row kill_while_saving();
attack_row leave_hostile_files();
attack_row complete_a_hostile_roster();

#endif
