#include "feed/ip_packet.h"

#include <algorithm>

namespace {

// IPv6 extension headers that may stand before TCP or UDP.
enum : uint8_t {
    hop_by_hop = 0,
    routing = 43,
    fragment_header = 44,
    authentication = 51,
    destination_options = 60,
    mobility = 135
};
constexpr int most_extension_headers = 8;

// The packet's length by its own header; 0 (segments joined by the network card exceed the field) or less than the header says
// nothing, and the length on the wire holds.
uint32_t wire_length(const packet &from, uint32_t stated, uint32_t header)
{
    return stated >= header && stated <= from.length ? stated : from.length;
}

void set_payload_bytes(size_t headers, ip_packet *out)
{
    out->payload_bytes = out->bytes > headers ? out->bytes - static_cast<uint32_t>(headers) : 0;
}

ip_outcome read_ports(byte_reader reader, ip_packet *out)
{
    if (out->protocol != protocol_tcp && out->protocol != protocol_udp)
        return ip_outcome::other;
    size_t begin = reader.at;
    out->source_port = reader.u16();
    out->destination_port = reader.u16();
    if (reader.failed)
        return ip_outcome::malformed;
    out->sequence = 0;
    out->tcp_flags = 0;
    if (out->protocol == protocol_udp) {
        uint16_t length = reader.u16();
        reader.skip(2);
        size_t most = length >= 8 ? length - 8u : SIZE_MAX;
        out->payload = reader.failed ? byte_view{} : reader.bytes.part(reader.at, most);
        set_payload_bytes(begin + 8, out);
        return ip_outcome::tcp_or_udp;
    }
    out->sequence = reader.u32();
    reader.skip(4);
    size_t header = static_cast<size_t>(reader.u8() >> 4) * 4;
    out->tcp_flags = reader.u8();
    if (reader.failed || header < 20)
        return ip_outcome::malformed;
    out->payload = reader.bytes.part(begin + header);
    set_payload_bytes(begin + header, out);
    return ip_outcome::tcp_or_udp;
}

ip_outcome read_ipv4(const packet &from, byte_view bytes, ip_packet *out)
{
    if (bytes.size < 20)
        return ip_outcome::malformed;
    uint32_t header = (bytes.data[0] & 0xFu) * 4;
    if (header < 20 || header > bytes.size)
        return ip_outcome::malformed;
    out->bytes = wire_length(from, static_cast<uint32_t>(bytes.data[2] << 8 | bytes.data[3]), header);
    out->whole = bytes.part(0, out->bytes);
    out->source = ipv4_address(bytes.data + 12);
    out->destination = ipv4_address(bytes.data + 16);
    if ((bytes.data[6] & 0x1F) != 0 || bytes.data[7] != 0)
        return ip_outcome::fragment;
    out->protocol = bytes.data[9];
    byte_reader reader(out->whole);
    reader.skip(header);
    return read_ports(reader, out);
}

ip_outcome read_ipv6(const packet &from, byte_view bytes, ip_packet *out)
{
    if (bytes.size < 40)
        return ip_outcome::malformed;
    uint32_t stated = static_cast<uint32_t>(bytes.data[4] << 8 | bytes.data[5]);
    out->bytes = wire_length(from, stated == 0 ? 0 : stated + 40, 40);
    out->whole = bytes.part(0, out->bytes);
    out->source = ipv6_address(bytes.data + 8);
    out->destination = ipv6_address(bytes.data + 24);
    byte_reader reader(out->whole);
    reader.skip(40);
    uint8_t next = bytes.data[6];
    for (int i = 0; i < most_extension_headers; i++) {
        if (next != hop_by_hop && next != routing && next != fragment_header && next != authentication &&
            next != destination_options && next != mobility) {
            out->protocol = next;
            return read_ports(reader, out);
        }
        uint8_t kind = next;
        next = reader.u8();
        uint8_t length = reader.u8();
        if (kind == fragment_header) {
            if ((reader.u16() & 0xFFF8) != 0)
                return ip_outcome::fragment;
            reader.skip(4);
        } else {
            size_t units = kind == authentication ? (length + 2u) * 4 : (length + 1u) * 8;
            reader.skip(units - 2);
        }
        if (reader.failed)
            return ip_outcome::malformed;
    }
    return ip_outcome::malformed;
}

} // namespace

ip_outcome read_ip_packet(const packet &from, ip_packet *out)
{
    byte_view bytes{from.bytes, std::min(from.captured, from.length)};
    if (bytes.size == 0)
        return ip_outcome::malformed;
    switch (bytes.data[0] >> 4) {
    case 4:
        return read_ipv4(from, bytes, out);
    case 6:
        return read_ipv6(from, bytes, out);
    default:
        return ip_outcome::malformed;
    }
}
