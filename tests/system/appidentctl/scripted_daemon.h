// A scripted daemon behind the platform library's real request server, and the tool run against it as a shell would.
#ifndef TESTS_SYSTEM_APPIDENTCTL_SCRIPTED_DAEMON_H
#define TESTS_SYSTEM_APPIDENTCTL_SCRIPTED_DAEMON_H

#include "common/counter_page.h"
#include "feed/feed_counters.h"
#include "igd/igd_types.h"

#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <string>

// A directory of this run, also in the variable HOME_DIR; state and runtime directory of the platform library.
extern std::string home;

void write_file(const std::string &name, const std::string &text);

struct outcome {
    int code;
    std::string words; // standard output and error
};
outcome run(const std::string &arguments, const std::string &variables = "COLUMNS=200");

// What the scripted daemon knows; one device, whatever its MAC.
struct daemon_script {
    std::mutex held; // shows the server's thread and the test's what the other wrote: the tool's process stands between them
    int role = 1;
    std::string limits, asked;
    appident_payment_notify_st switches = {}; // without a MAC: none are stored
};
extern daemon_script script;

// The daemon's counters, some of them and one that no release knows.
extern counter_page page;
void set(const char *name, u32 value);

// A page of the feed, whose process this one is.
void feed_says(const std::map<feed_counter, u32> &said);

class tool : public testing::Test {
protected:
    void SetUp() override;
};

#endif
