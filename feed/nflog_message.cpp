#include "feed/nflog_message.h"

#include "feed/byte_view.h"
#include "feed/wall_clock.h"

#include <algorithm>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_log.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <string.h>

namespace {

nla_policy at_least(uint16_t size)
{
    return {NLA_UNSPEC, size, 0};
}

byte_view contents(const nlattr *attribute)
{
    return {static_cast<const uint8_t *>(nla_data(attribute)), static_cast<size_t>(nla_len(attribute))};
}

// What the IP header says, as only a part may be there. Segments that were joined may be longer than it can say.
uint32_t length_on_the_wire(byte_view ip)
{
    byte_reader header(ip);
    unsigned int version = header.u8() >> 4;
    header.skip(version == 6 ? 3 : 1);
    uint32_t said = header.u16() + (version == 6 ? 40u : 0u);
    return std::max(said, static_cast<uint32_t>(ip.size));
}

} // namespace

bool read_logged_packet(const nlmsghdr *message, uint64_t now_us, logged_packet *out)
{
    static_assert(sizeof(nfulnl_msg_packet_hw) == 12 && sizeof(nfulnl_msg_packet_timestamp) == 16, "as the kernel sends them");
    *out = {};
    if (message->nlmsg_type != (NFNL_SUBSYS_ULOG << 8 | NFULNL_MSG_PACKET))
        return false;
    nla_policy policy[NFULA_MAX + 1] = {};
    policy[NFULA_TIMESTAMP] = at_least(sizeof(nfulnl_msg_packet_timestamp));
    policy[NFULA_HWADDR] = at_least(sizeof(nfulnl_msg_packet_hw));
    policy[NFULA_PAYLOAD] = at_least(1);
    policy[NFULA_SEQ] = at_least(sizeof(uint32_t));
    nlattr *found[NFULA_MAX + 1] = {};
    if (nlmsg_parse(const_cast<nlmsghdr *>(message), sizeof(nfgenmsg), found, NFULA_MAX, policy) < 0 || !found[NFULA_PAYLOAD])
        return false;
    byte_view bytes = contents(found[NFULA_PAYLOAD]);
    out->one.bytes = bytes.data;
    out->one.captured = static_cast<uint32_t>(bytes.size);
    out->one.length = length_on_the_wire(bytes);
    out->one.time_us = now_us;
    if (const nlattr *time = found[NFULA_TIMESTAMP]) {
        byte_reader reader(contents(time));
        uint64_t seconds = reader.number(8), microseconds = reader.number(8);
        out->one.time_us = believed_us(seconds, microseconds, now_us);
    }
    if (const nlattr *link = found[NFULA_HWADDR]) {
        byte_reader reader(contents(link));
        out->one.has_mac = reader.u16() == sizeof(out->one.mac);
        reader.skip(2);
        if (out->one.has_mac)
            memcpy(out->one.mac, reader.take(sizeof(out->one.mac)).data, sizeof(out->one.mac));
    }
    if (const nlattr *sequence = found[NFULA_SEQ]) {
        out->has_sequence = true;
        out->sequence = byte_reader(contents(sequence)).u32();
    }
    return true;
}
