// IPv4 and IPv6 addresses and networks of them.
#ifndef FEED_ADDRESS_H
#define FEED_ADDRESS_H

#include <array>
#include <stddef.h>
#include <stdint.h>
#include <string>
#include <vector>

struct ip_address {
    uint8_t family = 0;              // 4 or 6; 0 for none
    std::array<uint8_t, 16> bytes{}; // network order; of IPv4 the first four, the others zero
};

inline bool operator==(const ip_address &a, const ip_address &b)
{
    return a.family == b.family && a.bytes == b.bytes;
}
inline bool operator!=(const ip_address &a, const ip_address &b)
{
    return !(a == b);
}

// Mixed with a number drawn at the start of the process, so that no sender can choose addresses that collide.
uint64_t hash_of(const ip_address &address, uint64_t with = 0);

struct ip_address_hash {
    size_t operator()(const ip_address &address) const { return static_cast<size_t>(hash_of(address)); }
};

ip_address ipv4_address(const uint8_t *bytes);
ip_address ipv6_address(const uint8_t *bytes);

// False when the text is no address.
bool read_address(const std::string &text, ip_address *out);
std::string address_text(const ip_address &address);

// To many receivers or to nobody in particular: multicast, broadcast, unspecified.
bool is_special(const ip_address &address);

// Never forwarded: both ends are on the same link.
bool is_link_local(const ip_address &address);

struct ip_network {
    ip_address base;
    unsigned int prefix = 0; // bits
};

// ADDRESS/BITS, or an address alone.
bool read_network(const std::string &text, ip_network *out);
bool contains(const ip_network &network, const ip_address &address);

// The LAN: "private" for the private IPv4 networks, link-local and unique local addresses, networks as ADDRESS/BITS, or several
// of these with commas between them. False when the text is neither.
bool read_lan(const std::string &text, std::vector<ip_network> *out);
bool contains(const std::vector<ip_network> &networks, const ip_address &address);

#endif
