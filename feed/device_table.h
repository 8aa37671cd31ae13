// The LAN's devices: by address, with the link address that joins a device's IPv6 addresses to its IPv4 address. A fixed
// number; when it is full, one makes place.
#ifndef FEED_DEVICE_TABLE_H
#define FEED_DEVICE_TABLE_H

#include "feed/use_rule.h"

#include <array>
#include <deque>
#include <unordered_map>

using mac_address = std::array<uint8_t, 6>;

constexpr uint32_t no_flow = UINT32_MAX;
constexpr size_t most_uses_of_device = 110; // apps that the daemon keeps for a device

struct feed_device {
    ip_address address; // family 0: not taken
    bool has_mac = false;
    mac_address mac{};
    bool owns_mac = false;  // IPv6 addresses behind the same link address are told as this one
    bool is_router = false; // packets from outside come from its link address
    uint64_t last_us = 0;
    // Its flows, linked by the flow table: the one met last first.
    uint32_t newest_flow = no_flow, oldest_flow = no_flow;
    uint32_t flows = 0, inspections = 0;
    std::vector<app_use> uses;
};

class device_table {
public:
    explicit device_table(size_t most_devices) : limit(most_devices) {}

    // Null when the address is not known.
    feed_device *find(const ip_address &address);
    // The known or a new one. When the table is full, null: the caller frees oldest() and asks again.
    feed_device *get(const ip_address &address);
    // The one unseen for longest; of those with this link address where it is known and has any, so that who shows many
    // addresses pushes out no other. Whose address is told for that link address stays.
    feed_device *oldest(const mac_address *link);
    void remove(feed_device *device);

    // A packet of the device showed its link address.
    void learn_mac(feed_device *device, const mac_address &mac);
    // The device under whose IPv4 address its use is told; itself where none is known.
    feed_device *told_as(feed_device *device);
    // The device with an IPv4 address that has this link address; null when there is none.
    feed_device *by_link(const mac_address &mac);

    // An IPv6 address of which only the link address is known.
    bool is_unjoined(const feed_device &device) { return device.address.family == 6 && device.has_mac && !by_link(device.mac); }

    // Stable while a device is known.
    std::deque<feed_device> all;

private:
    size_t limit;
    std::unordered_map<ip_address, feed_device *, ip_address_hash> by_address;
    std::unordered_map<uint64_t, feed_device *> by_mac; // of those with an IPv4 address, the one seen last
};

#endif
