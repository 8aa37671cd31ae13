// Where a test meets the platform library: a directory with settings, state and runtime files of its own, and a network
// namespace where one is allowed. CTest runs each test in a process, so each starts with nothing.
#ifndef TESTS_SYSTEM_PLATFORM_PLACE_H
#define TESTS_SYSTEM_PLATFORM_PLACE_H

#include "igd/igd_lib.h"
#include "tests/kit/waiting.h"

#include <functional>
#include <future>
#include <poll.h>
#include <string>
#include <sys/types.h>
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
// A handler that refuses every request.
int refuse(unsigned int id, void *pa, void *pb, void *pc);
// A neighbour message to the kernel, of an address of IPv4 or IPv6 on an interface; no MAC for "".
void tell_kernel(nl_sock *kernel, int type, const std::string &address, const std::string &mac, uint16_t state = 0,
                 const char *where = "br-lan");
// In a child that is nobody in the given groups; its exit code, 99 when that cannot be.
int as_nobody(const std::vector<gid_t> &groups, const std::function<int()> &act);

// Serves like the daemon's loop while the other thread asks.
template <typename question> auto serve_during(int server, question ask)
{
    auto asking = std::async(std::launch::async, ask);
    for (pollfd ready = {server, POLLIN, 0}; asking.wait_for(std::chrono::seconds(0)) != std::future_status::ready;)
        if (poll(&ready, 1, 20) == 1)
            ipc_server_accept2();
    return asking.get();
}

#endif
