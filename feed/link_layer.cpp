#include "feed/link_layer.h"

#include <algorithm>
#include <pcap/dlt.h>
#include <string.h>

namespace {

enum : uint16_t {
    ethertype_ipv4 = 0x0800,
    ethertype_ipv6 = 0x86DD,
    ethertype_vlan = 0x8100,
    ethertype_vlan_outer = 0x88A8,
    ethertype_vlan_old = 0x9100,
    ethertype_pppoe = 0x8864,
};
enum : uint16_t { ppp_ipv4 = 0x21, ppp_ipv6 = 0x57 };
constexpr int most_tags = 4;

// False for what names no single device: another length, nothing but zeros, an address of many.
bool take_mac(byte_view mac, uint8_t (&out)[6])
{
    static const uint8_t none[6] = {};
    if (mac.size != sizeof(out) || memcmp(mac.data, none, sizeof(none)) == 0 || (mac.data[0] & 1) != 0)
        return false;
    memcpy(out, mac.data, sizeof(out));
    return true;
}

// From the EtherType's value on: tags, then IP.
bool skip_tags(byte_reader *reader, uint16_t type)
{
    for (int i = 0; i < most_tags && !reader->failed; i++) {
        if (type == ethertype_ipv4 || type == ethertype_ipv6)
            return true;
        if (type == ethertype_pppoe) {
            reader->skip(6);
            uint16_t protocol = reader->u16();
            return !reader->failed && (protocol == ppp_ipv4 || protocol == ppp_ipv6);
        }
        if (type != ethertype_vlan && type != ethertype_vlan_outer && type != ethertype_vlan_old)
            return false;
        reader->skip(2);
        type = reader->u16();
    }
    return false;
}

bool ethernet(byte_reader *reader, link_frame *out)
{
    out->has_to_mac = take_mac(reader->take(6), out->to_mac);
    out->has_mac = take_mac(reader->take(6), out->mac);
    return skip_tags(reader, reader->u16());
}

bool cooked(byte_reader *reader, link_frame *out)
{
    reader->skip(4);
    uint16_t size = reader->u16();
    byte_view address = reader->take(8);
    out->has_mac = take_mac(address.part(0, size), out->mac);
    return skip_tags(reader, reader->u16());
}

bool cooked_2(byte_reader *reader, link_frame *out)
{
    uint16_t type = reader->u16();
    reader->skip(9);
    uint8_t size = reader->u8();
    byte_view address = reader->take(8);
    out->has_mac = take_mac(address.part(0, size), out->mac);
    return skip_tags(reader, type);
}

bool raw(byte_reader *, link_frame *)
{
    return true;
}

bool loopback(byte_reader *reader, link_frame *)
{
    reader->skip(4); // the family's number differs between systems; IP's own version field does not
    return true;
}

struct link_kind {
    int type;
    bool (*skip_header)(byte_reader *reader, link_frame *out);
};
constexpr link_kind kinds[] = {
    {DLT_EN10MB, ethernet}, {DLT_LINUX_SLL, cooked}, {DLT_LINUX_SLL2, cooked_2}, {DLT_RAW, raw},
    {DLT_IPV4, raw},        {DLT_IPV6, raw},         {DLT_NULL, loopback},       {DLT_LOOP, loopback},
};

const link_kind *find_kind(int type)
{
    for (const link_kind &kind : kinds)
        if (kind.type == type)
            return &kind;
    return nullptr;
}

} // namespace

bool is_known_link_type(int type)
{
    return find_kind(type) != nullptr;
}

bool find_ip(int type, byte_view frame, link_frame *out)
{
    *out = {};
    const link_kind *kind = find_kind(type);
    byte_reader reader(frame);
    if (!kind || !kind->skip_header(&reader, out) || reader.failed)
        return false;
    out->header = reader.at;
    out->ip = frame.part(reader.at);
    return out->ip.size > 0;
}

void fill_packet(const link_frame &frame, uint32_t length, packet *out)
{
    out->bytes = frame.ip.data;
    out->captured = static_cast<uint32_t>(frame.ip.size);
    out->length = std::max(length - std::min(length, static_cast<uint32_t>(frame.header)), out->captured);
    out->has_mac = frame.has_mac;
    memcpy(out->mac, frame.mac, sizeof(out->mac));
    out->has_to_mac = frame.has_to_mac;
    memcpy(out->to_mac, frame.to_mac, sizeof(out->to_mac));
}
