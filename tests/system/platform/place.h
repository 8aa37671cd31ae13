// Where a test meets the platform library: a directory with settings, state and runtime files of its own, and a network
// namespace where one is allowed. CTest runs each test in a process, so each starts with nothing.
#ifndef TESTS_SYSTEM_PLATFORM_PLACE_H
#define TESTS_SYSTEM_PLATFORM_PLACE_H

#include "igd/igd_types.h"

#include <chrono>
#include <functional>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

extern std::string home; // ends with a slash; holds settings.json, state/, run/
extern std::string socket_path;
extern bool own_network;

// Names are relative to home.
void write_file(const std::string &name, const std::string &text);
std::string read_file(const std::string &name);
mode_t mode_of(const std::string &path);
// What the page shows now; a count appears there within a quarter of a second.
u32 counter_of(const std::string &name);
// Whether it comes to show exactly that.
bool counts(const std::string &name, u64 wanted);
// A client of a Unix socket, -1 when nobody listens.
int connect_to(const std::string &path, int type);
// In a child that is nobody in the given groups; its exit code, 99 when that cannot be.
int as_nobody(const std::vector<gid_t> &groups, const std::function<int()> &act);

template <typename condition> bool comes_true(condition holds)
{
    for (int i = 0; i < 6000 && !holds(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return holds();
}

#endif
