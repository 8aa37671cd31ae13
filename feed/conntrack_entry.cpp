#include "feed/conntrack_entry.h"

#include "feed/byte_view.h"
#include "feed/ip_packet.h"

#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>
#include <netlink/attr.h>
#include <netlink/msg.h>

namespace {

constexpr uint16_t ipv6_bytes = 16;

byte_view contents(const nlattr *attribute)
{
    return {static_cast<const uint8_t *>(nla_data(attribute)), static_cast<size_t>(nla_len(attribute))};
}

// The attributes of a nest, or false.
template <int most> bool open_nest(nlattr *nest, nlattr *(&found)[most + 1], const nla_policy (&policy)[most + 1])
{
    return nest && nla_parse(found, most, static_cast<nlattr *>(nla_data(nest)), nla_len(nest), policy) == 0;
}

constexpr nla_policy at_least(uint16_t size)
{
    return {NLA_UNSPEC, size, 0};
}

// The sender of a direction.
bool read_sender(nlattr *tuple, conntrack_end *out, uint8_t *protocol)
{
    const nla_policy nests[CTA_TUPLE_MAX + 1] = {};
    nla_policy addresses[CTA_IP_MAX + 1] = {}, ports[CTA_PROTO_MAX + 1] = {};
    addresses[CTA_IP_V4_SRC] = at_least(4);
    addresses[CTA_IP_V6_SRC] = at_least(ipv6_bytes);
    ports[CTA_PROTO_NUM] = at_least(1);
    ports[CTA_PROTO_SRC_PORT] = at_least(2);
    nlattr *parts[CTA_TUPLE_MAX + 1] = {}, *ip[CTA_IP_MAX + 1] = {}, *proto[CTA_PROTO_MAX + 1] = {};
    if (!open_nest<CTA_TUPLE_MAX>(tuple, parts, nests) || !open_nest<CTA_IP_MAX>(parts[CTA_TUPLE_IP], ip, addresses) ||
        !open_nest<CTA_PROTO_MAX>(parts[CTA_TUPLE_PROTO], proto, ports) || !proto[CTA_PROTO_NUM] || !proto[CTA_PROTO_SRC_PORT])
        return false;
    if (ip[CTA_IP_V4_SRC])
        out->address = ipv4_address(contents(ip[CTA_IP_V4_SRC]).data);
    else if (ip[CTA_IP_V6_SRC])
        out->address = ipv6_address(contents(ip[CTA_IP_V6_SRC]).data);
    else
        return false;
    out->port = byte_reader(contents(proto[CTA_PROTO_SRC_PORT])).u16();
    *protocol = nla_get_u8(proto[CTA_PROTO_NUM]);
    return *protocol == protocol_tcp || *protocol == protocol_udp;
}

// Adds the packets of this direction.
bool read_counters(nlattr *nest, uint64_t *bytes, uint64_t *packets)
{
    nla_policy counters[CTA_COUNTERS_MAX + 1] = {};
    counters[CTA_COUNTERS_BYTES] = counters[CTA_COUNTERS_PACKETS] = at_least(sizeof(uint64_t));
    nlattr *found[CTA_COUNTERS_MAX + 1] = {};
    if (!open_nest<CTA_COUNTERS_MAX>(nest, found, counters) || !found[CTA_COUNTERS_BYTES] || !found[CTA_COUNTERS_PACKETS])
        return false;
    *bytes = byte_reader(contents(found[CTA_COUNTERS_BYTES])).number(sizeof(uint64_t));
    *packets += byte_reader(contents(found[CTA_COUNTERS_PACKETS])).number(sizeof(uint64_t));
    return true;
}

} // namespace

bool read_conntrack_entry(const nlmsghdr *message, conntrack_entry *out)
{
    *out = {};
    if (message->nlmsg_type != (NFNL_SUBSYS_CTNETLINK << 8 | IPCTNL_MSG_CT_NEW))
        return false;
    nlattr *found[CTA_MAX + 1] = {};
    uint8_t back = 0;
    return nlmsg_parse(const_cast<nlmsghdr *>(message), sizeof(nfgenmsg), found, CTA_MAX, nullptr) == 0 &&
           read_sender(found[CTA_TUPLE_ORIG], &out->client, &out->protocol) &&
           read_sender(found[CTA_TUPLE_REPLY], &out->server, &back) && back == out->protocol &&
           out->client.address.family == out->server.address.family &&
           read_counters(found[CTA_COUNTERS_ORIG], &out->client_bytes, &out->packets) &&
           read_counters(found[CTA_COUNTERS_REPLY], &out->server_bytes, &out->packets);
}
