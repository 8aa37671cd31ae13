// The headers of an IP packet: addresses, ports, TCP's sequence number and what follows them.
#ifndef FEED_IP_PACKET_H
#define FEED_IP_PACKET_H

#include "feed/address.h"
#include "feed/byte_view.h"
#include "feed/packet.h"

enum : uint8_t { protocol_tcp = 6, protocol_udp = 17 };
enum : uint8_t { tcp_fin = 1, tcp_syn = 2, tcp_rst = 4, tcp_ack = 16 };

struct ip_packet {
    ip_address source, destination;
    uint8_t protocol; // protocol_tcp or protocol_udp
    uint8_t tcp_flags;
    uint16_t source_port, destination_port;
    uint32_t sequence;      // TCP's
    uint32_t bytes;         // of the whole packet on the wire, IP header included, as connection tracking counts them
    byte_view whole;        // what was captured of it, without padding behind
    byte_view payload;      // what was captured behind the TCP or UDP header,
    uint32_t payload_bytes; // of so many on the wire
};

enum class ip_outcome {
    tcp_or_udp, // `out` is filled
    malformed,  // a header is cut short or contradicts itself
    fragment,   // a later fragment: no ports
    other,      // another protocol
};
ip_outcome read_ip_packet(const packet &from, ip_packet *out);

#endif
