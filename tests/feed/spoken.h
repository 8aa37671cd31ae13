// What clients, servers and resolvers say, as bytes that the tests make themselves.
#ifndef TESTS_FEED_SPOKEN_H
#define TESTS_FEED_SPOKEN_H

#include "feed/packet.h"
#include "feed/quic_initial.h"

#include <string>
#include <vector>

using bytes = std::string;

inline byte_view view(const bytes &of)
{
    return {reinterpret_cast<const uint8_t *>(of.data()), of.size()};
}

// Netlink, in host order: an attribute, padded; a message of netfilter's with its attributes.
bytes netlink_attribute(int type, const bytes &contents);
bytes netlink_message(int type, const bytes &attributes);

// An integer in network order.
bytes number(uint64_t value, int size);

struct hello_shape {
    size_t padding = 0; // bytes of another extension before the name, such as a long key share
    bool has_name = true;
    bool has_ech = false;
};
// A ClientHello handshake message.
bytes client_hello(const std::string &host, const hello_shape &shape = {});
// The same in TLS records of at most so many bytes.
bytes tls_records(const bytes &handshake, size_t most = 16384);

// A CRYPTO frame.
bytes crypto_frame(const bytes &handshake, size_t offset, size_t size);
// An Initial packet with these frames, encrypted under the connection id. `keys_id`: whose keys, if not the packet's own.
bytes quic_initial(uint32_t version, const bytes &id, const bytes &frames, const bytes &keys_id = {});

struct dns_record {
    std::string owner;
    uint16_t type;     // 1 A, 5 CNAME, 28 AAAA
    std::string value; // an address or a name
};
bytes dns_message(const std::string &question, const std::vector<dns_record> &records, uint32_t ttl = 60);

// IP packets. Addresses as texts, both of the same family.
struct ends {
    std::string from, to;
    uint16_t from_port, to_port;
};
inline ends back(const ends &of)
{
    return {of.to, of.from, of.to_port, of.from_port};
}
// A connection with its counters, as connection tracking tells it; the other end sees `seen_as` where that is not empty.
bytes conntrack_message(const ends &of, uint64_t up, uint64_t down, const std::string &seen_as = {});
bytes udp_packet(const ends &of, const bytes &payload);
bytes tcp_packet(const ends &of, uint32_t sequence, uint8_t flags, const bytes &payload);

// The packet under an Ethernet header, from the MAC 02:00:00:00:00:`mac`.
bytes ethernet_frame(const bytes &ip, uint8_t mac, const bytes &tags = {});

// A capture file. Times in seconds.
struct captured_frame {
    double time;
    bytes frame;
};
void write_capture(const std::string &path, const std::vector<captured_frame> &frames, int link_type = 1);

#endif
