// A packet that the kernel's rules logged, as a netlink message.
#ifndef FEED_NFLOG_MESSAGE_H
#define FEED_NFLOG_MESSAGE_H

#include "feed/packet.h"

struct nlmsghdr;

struct logged_packet {
    packet one; // its bytes lie in the message; without a time of its own that of the caller
    bool has_sequence;
    uint32_t sequence; // counts what was logged, in this group
};

// `now_us`: epoch microseconds. False for what is no logged packet, or has no contents. The message must be there up to its
// length.
bool read_logged_packet(const nlmsghdr *message, uint64_t now_us, logged_packet *out);

#endif
