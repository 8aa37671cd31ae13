// The IPv4 neighbours of this host, as its kernel knows them: they name a device of which only IPv6 was seen.
#ifndef FEED_NEIGHBOURS_H
#define FEED_NEIGHBOURS_H

#include "feed/address.h"
#include "feed/device_table.h"

#include <functional>

using neighbour_sink = std::function<void(const ip_address &address, const mac_address &mac)>;

// Those with a link address. False when the kernel did not tell them all.
bool read_ipv4_neighbours(const neighbour_sink &sink);

#endif
