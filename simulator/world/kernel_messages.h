// The messages that a router's kernel would send, made byte for byte and multicast over real netlink.
//
// Needs CAP_NET_ADMIN over the network namespace. Addresses are dotted texts, MACs are MAC texts.
#ifndef SIMULATOR_WORLD_KERNEL_MESSAGES_H
#define SIMULATOR_WORLD_KERNEL_MESSAGES_H

#include "common/accounting_format.h"
#include "igd/igd_netlink.h"

#include <string>
#include <vector>

struct accounting {
    u32 word, rule, upper_limit;
    std::string device_ip, remote_ip;
    u32 up, down;
};
std::vector<unsigned char> accounting_message(const accounting &flow);

nlk_host_msg host_message(int action, const std::string &ip, const std::string &mac);
nlk_sys_msg app_message(int action, u32 word, u32 rule, const std::string &ip, const std::string &mac);

// The six bytes of a MAC text; false when it is none.
bool mac_from_text(const std::string &text, unsigned char *mac);

// Conntrack multicast groups: a new flow, and the accounting of a known one.
constexpr u32 group_new = 1, group_update = 2;

// A sending socket of netfilter's netlink, -1 when there is none.
int open_conntrack();
// Multicasts the bytes to the group (1 and up). A group that nobody listens to is no failure.
bool multicast(int fd, u32 group, const void *data, size_t size);
// Sends a router message to the platform library's channel in its runtime directory.
bool send_router_message(const std::string &runtime_dir, const void *message, size_t size);

#endif
