// What the classifier tells: that a device used an app in an interval, and (for who asks) what each flow was.
#ifndef FEED_HIT_H
#define FEED_HIT_H

#include "feed/address.h"
#include "feed/evidence.h"

#include <functional>

// The two ends of a connection; the device's end is the one in the LAN, whoever began.
struct flow_key {
    ip_address device, server;
    uint16_t device_port = 0, server_port = 0;
    uint8_t protocol = 0; // protocol_tcp or protocol_udp
};

inline bool operator==(const flow_key &a, const flow_key &b)
{
    return a.device_port == b.device_port && a.server_port == b.server_port && a.protocol == b.protocol &&
           a.device == b.device && a.server == b.server;
}

struct hit {
    uint64_t time_us;  // the interval's end
    ip_address device; // its IPv4 address; IPv6 where no IPv4 address of the device is known
    uint32_t app;
    bool is_marked; // it may open a session
    bool is_call;
    uint64_t up_bytes, down_bytes; // from and to the device, in this interval
    evidence by;                   // of the flow with the most bytes
    std::string host;              // likewise; may be empty
    flow_key flow;                 // likewise
};

struct flow_report {
    flow_key key;
    uint64_t first_us;
    uint32_t app; // 0: unknown
    evidence by;
    std::string host; // also of an unknown app
    uint64_t up_bytes, down_bytes;
    bool is_call;
};

using hit_sink = std::function<void(const hit &)>;
using flow_sink = std::function<void(const flow_report &)>;

#endif
