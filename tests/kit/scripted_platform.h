// The router's platform library, as far as the core calls it, as the tests want it: answers from a script, and a record of
// everything asked of it.
//
// Records are lines of text in the order of the calls. `outgoing` holds what leaves the daemon:
//   push CODE OCCUR_TIME TEXT
//   status STATUS app ID at TIMESTAMP of MAC        (plus " class N" where it is not 0)
// each with " unlocked" behind when device_apps_mtx was not held. `calls` holds what the services were asked, as PATH?QUERY
// (PATH alone for a null query).
#ifndef TESTS_KIT_SCRIPTED_PLATFORM_H
#define TESTS_KIT_SCRIPTED_PLATFORM_H

#include "igd/igd_lib.h"

#include <array>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

struct home_device {
    std::string mac; // text
    std::string role = "1";
    bool online = true;
    std::string name = "";
    int group = -1; // negative: the look-up fails
};

struct scripted_platform {
    // The script.
    std::vector<home_device> devices;              // what the device services and the naming know, in answer order
    std::map<std::string, std::string> answers;    // raw answers that go before the computed ones, by PATH or PATH?QUERY
    std::set<std::string> failing;                 // operations that fail, by name; services by PATH
    std::map<std::string, std::string> neighbours; // dotted address to MAC text
    std::vector<std::string> router_messages;      // received one by one, then failures; a byte of the channel for each
    std::function<int()> serve_request;            // what the request server does when it is its turn
    std::string config_dir;                        // prefix of configuration paths
    u32 uptime = 5000;

    // The record.
    std::vector<std::string> outgoing;
    std::vector<std::string> calls;
    int saved = 0;                   // calls of save_param
    int named = 0;                   // calls of nos_hostname_action
    std::vector<std::string> locked; // of these services, what was called while device_apps_mtx was held

    home_device &device(const std::string &mac); // the one with that MAC, made when missing
};
extern scripted_platform platform;

bool lock_is_held();
std::array<unsigned char, 6> mac_from_text(const std::string &text);
std::string mac_to_text(const unsigned char *mac);

#endif
