// A connection that connection tracking knows, with its counters, as a netlink message.
#ifndef FEED_CONNTRACK_ENTRY_H
#define FEED_CONNTRACK_ENTRY_H

#include "feed/hit.h"

struct nlmsghdr;

struct conntrack_end {
    ip_address address;
    uint16_t port;
};

// Addresses as they are where packets are forwarded: those of the client before its own is hidden, those of the server that
// really answers.
struct conntrack_entry {
    conntrack_end client, server;        // the client opened the connection
    uint8_t protocol;                    // protocol_tcp or protocol_udp
    uint64_t client_bytes, server_bytes; // that each sent, IP headers included
    uint64_t packets;                    // of both
};

// False for what is none, for other protocols, and for a connection without counters. The message must be there up to its
// length.
bool read_conntrack_entry(const nlmsghdr *message, conntrack_entry *out);

#endif
