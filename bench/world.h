// A household of its own for each measurement: network, files, neighbours, all private to the calling process.
#ifndef BENCH_WORLD_H
#define BENCH_WORLD_H

#include "igd/igd_types.h"

#include <string>
#include <vector>

constexpr u32 apps_in_use = 110; // of every device
constexpr u32 first_app = 1000;  // 300 to 303 are payments

// Makes a network and a /tmp of its own around the calling process, with that many devices that have a role, a permanent
// neighbour entry and limits in all five classes. Exits after saying on standard error what is missing.
void make_world(u32 devices, const std::string &daemon_path);

std::string address_of(u32 device);

// Netlink bytes of one accounting message.
using message = std::vector<unsigned char>;
enum hit_kind { continuing, starting };
message hit(u32 device, u32 app, hit_kind kind);

// A sending socket; send_to_group exits on failure.
int open_sender();
void send_to_group(int fd, u32 group, const message &bytes);
// One starting hit for each app of each device, at a pace that a receiver keeps up with.
void start_every_app(int fd, u32 group, u32 devices);

#endif
