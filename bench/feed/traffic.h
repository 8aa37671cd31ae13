// Connections between devices of a LAN and a server, frame by frame.
#ifndef BENCH_FEED_TRAFFIC_H
#define BENCH_FEED_TRAFFIC_H

#include <stdint.h>
#include <string>
#include <vector>

constexpr const char *device_address = "192.168.77.20", *device_mac = "02:00:5e:00:00:20";
constexpr const char *server_address = "203.0.113.5", *server_mac = "02:00:5e:00:00:05";
constexpr const char *router_mac = "02:00:5e:00:00:01"; // on both sides

struct frame {
    bool from_lan;
    std::vector<uint8_t> bytes;
};

// A client's first flight of TLS that asks for the host; empty when OpenSSL makes none.
std::vector<uint8_t> client_hello(const std::string &host);

// Packets `first` to `last` - 1 of connections of `length` packets each: SYN, SYN/ACK, ACK, the hello, then mostly what the
// server sends, and FINs at the end. Packet n of all of them comes before packet n + 1 of any. `number` tells connections
// apart.
std::vector<frame> connections(uint32_t number, unsigned int count, unsigned int length, unsigned int first, unsigned int last,
                               const std::vector<uint8_t> &hello);

#endif
