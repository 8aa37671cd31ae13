#include "tests/feed/spoken.h"

#include "feed/address.h"
#include "feed/quic_crypto.h"

#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>
#include <linux/netlink.h>
#include <openssl/evp.h>
#include <pcap/pcap.h>
#include <string.h>

namespace {

bytes sized(const bytes &content, int size_of_length)
{
    return number(content.size(), size_of_length) + content;
}

bytes extension(uint16_t type, const bytes &content)
{
    return number(type, 2) + sized(content, 2);
}

bytes varint(uint64_t value)
{
    return value < 64 ? number(value, 1) : value < 16384 ? number(value | 0x4000, 2) : number(value | 0x80000000, 4);
}

bytes address_bytes(const std::string &text)
{
    ip_address address;
    read_address(text, &address);
    return {reinterpret_cast<const char *>(address.bytes.data()), address.family == 4 ? 4u : 16u};
}

bytes dns_name(const std::string &name)
{
    bytes out;
    for (size_t begin = 0; begin < name.size();) {
        size_t end = std::min(name.find('.', begin), name.size());
        out += sized(name.substr(begin, end - begin), 1);
        begin = end + 1;
    }
    return out + bytes(1, 0);
}

bytes ip_packet_of(const ends &of, uint8_t protocol, const bytes &content)
{
    bytes from = address_bytes(of.from);
    bytes to = address_bytes(of.to);
    if (from.size() == 4)
        return "\x45" + number(0, 1) + number(20 + content.size(), 2) + number(0, 4) + number(64, 1) + number(protocol, 1) +
               number(0, 2) + from + to + content;
    return number(0x60000000, 4) + number(content.size(), 2) + number(protocol, 1) + number(64, 1) + from + to + content;
}

// Whatever the library under test makes of a sample, the header is protected by the cipher itself.
bytes encrypt(const EVP_CIPHER *cipher, const std::array<uint8_t, 16> &key, const uint8_t *nonce, const bytes &header,
              const bytes &plain)
{
    EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
    std::vector<uint8_t> out(plain.size() + 32);
    auto at = [](const bytes &of) { return reinterpret_cast<const uint8_t *>(of.data()); };
    int size = 0, unused = 0;
    EVP_EncryptInit_ex(context, cipher, nullptr, key.data(), nonce);
    if (nonce)
        EVP_EncryptUpdate(context, nullptr, &unused, at(header), static_cast<int>(header.size()));
    EVP_EncryptUpdate(context, out.data(), &size, at(plain), static_cast<int>(plain.size()));
    EVP_EncryptFinal_ex(context, out.data() + size, &unused);
    if (nonce) {
        EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_GET_TAG, 16, out.data() + size);
        size += 16;
    }
    EVP_CIPHER_CTX_free(context);
    return {reinterpret_cast<char *>(out.data()), static_cast<size_t>(size)};
}

} // namespace

bytes netlink_attribute(int type, const bytes &contents)
{
    nlattr header{static_cast<uint16_t>(sizeof(nlattr) + contents.size()), static_cast<uint16_t>(type)};
    bytes whole = bytes(reinterpret_cast<const char *>(&header), sizeof(header)) + contents;
    return whole + bytes((4 - whole.size() % 4) % 4, 0);
}

bytes netlink_message(int type, const bytes &attributes)
{
    nlmsghdr header{};
    nfgenmsg family{};
    header.nlmsg_len = static_cast<uint32_t>(sizeof(header) + sizeof(family) + attributes.size());
    header.nlmsg_type = static_cast<uint16_t>(type);
    return bytes(reinterpret_cast<const char *>(&header), sizeof(header)) +
           bytes(reinterpret_cast<const char *>(&family), sizeof(family)) + attributes;
}

bytes conntrack_message(const ends &of, uint64_t up, uint64_t down, const std::string &seen_as)
{
    auto tuple = [](const ends &way) {
        bool v4 = way.from.find(':') == std::string::npos;
        bytes ip = netlink_attribute(v4 ? CTA_IP_V4_SRC : CTA_IP_V6_SRC, address_bytes(way.from)) +
                   netlink_attribute(v4 ? CTA_IP_V4_DST : CTA_IP_V6_DST, address_bytes(way.to));
        bytes proto = netlink_attribute(CTA_PROTO_NUM, number(6, 1)) +
                      netlink_attribute(CTA_PROTO_SRC_PORT, number(way.from_port, 2)) +
                      netlink_attribute(CTA_PROTO_DST_PORT, number(way.to_port, 2));
        return netlink_attribute(CTA_TUPLE_IP, ip) + netlink_attribute(CTA_TUPLE_PROTO, proto);
    };
    auto counters = [](uint64_t count) {
        return netlink_attribute(CTA_COUNTERS_PACKETS, number(1, 8)) + netlink_attribute(CTA_COUNTERS_BYTES, number(count, 8));
    };
    ends reply = back(of);
    if (!seen_as.empty())
        reply.to = seen_as;
    return netlink_message(NFNL_SUBSYS_CTNETLINK << 8 | IPCTNL_MSG_CT_NEW,
                           netlink_attribute(CTA_TUPLE_ORIG, tuple(of)) + netlink_attribute(CTA_TUPLE_REPLY, tuple(reply)) +
                               netlink_attribute(CTA_COUNTERS_ORIG, counters(up)) +
                               netlink_attribute(CTA_COUNTERS_REPLY, counters(down)));
}

bytes number(uint64_t value, int size)
{
    bytes out;
    for (int i = size - 1; i >= 0; i--)
        out += static_cast<char>(value >> (i * 8));
    return out;
}

bytes client_hello(const std::string &host, const hello_shape &shape)
{
    bytes extensions = extension(0x000A, number(2, 2) + number(0x001D, 2));
    if (shape.padding > 0)
        extensions += extension(0x0033, bytes(shape.padding, 'k'));
    if (shape.has_name)
        extensions += extension(0, sized(number(0, 1) + sized(host, 2), 2));
    if (shape.has_ech)
        extensions += extension(0xFE0D, bytes(150, 'e'));
    bytes body = number(0x0303, 2) + bytes(32, 'r') + sized(bytes(32, 's'), 1) + sized(number(0x1301, 2), 2) +
                 sized(bytes(1, 0), 1) + sized(extensions, 2);
    return number(1, 1) + sized(body, 3);
}

bytes tls_records(const bytes &handshake, size_t most)
{
    bytes out;
    for (size_t at = 0; at < handshake.size(); at += most)
        out += number(0x160301, 3) + sized(handshake.substr(at, most), 2);
    return out;
}

bytes crypto_frame(const bytes &handshake, size_t offset, size_t size)
{
    bytes piece = handshake.substr(offset, size);
    return varint(6) + varint(offset) + varint(piece.size()) + piece;
}

bytes quic_initial(uint32_t version, const bytes &id, const bytes &frames, const bytes &keys_id)
{
    quic_keys keys;
    derive_quic_keys(version, view(keys_id.empty() ? id : keys_id), &keys);
    unsigned int type = version == 0x6b3343cf ? 1 : 0;
    constexpr size_t number_size = 2;
    bytes header = number(0xC0u | type << 4 | (number_size - 1), 1) + number(version, 4) + sized(id, 1) + sized({}, 1) +
                   varint(0) + number((number_size + frames.size() + 16) | 0x4000, 2);
    size_t number_at = header.size();
    header += number(7, number_size);
    std::array<uint8_t, 12> nonce = keys.iv;
    nonce[11] ^= 7;
    bytes sealed = encrypt(EVP_aes_128_gcm(), keys.key, nonce.data(), header, frames);
    bytes sample = (header + sealed).substr(number_at + 4, 16);
    bytes mask = encrypt(EVP_aes_128_ecb(), keys.header_key, nullptr, {}, sample);
    header[0] = static_cast<char>(header[0] ^ (mask[0] & 0x0F));
    for (size_t i = 0; i < number_size; i++)
        header[number_at + i] = static_cast<char>(header[number_at + i] ^ mask[1 + i]);
    return header + sealed;
}

bytes dns_message(const std::string &question, const std::vector<dns_record> &records, uint32_t ttl)
{
    uint16_t type = records.empty() ? uint16_t{1} : records.back().type;
    bytes out = number(0x1234, 2) + number(0x8180, 2) + number(1, 2) + number(records.size(), 2) + number(0, 4) +
                dns_name(question) + number(type, 2) + number(1, 2);
    for (const dns_record &one : records) {
        // The question's name as a pointer to it, as resolvers write it.
        bytes owner = one.owner == question ? number(0xC00C, 2) : dns_name(one.owner);
        bytes value = one.type == 5 ? dns_name(one.value) : address_bytes(one.value);
        out += owner + number(one.type, 2) + number(1, 2) + number(ttl, 4) + sized(value, 2);
    }
    return out;
}

bytes udp_packet(const ends &of, const bytes &payload)
{
    return ip_packet_of(
        of, 17, number(of.from_port, 2) + number(of.to_port, 2) + number(payload.size() + 8, 2) + number(0, 2) + payload);
}

bytes tcp_packet(const ends &of, uint32_t sequence, uint8_t flags, const bytes &payload)
{
    return ip_packet_of(of, 6,
                        number(of.from_port, 2) + number(of.to_port, 2) + number(sequence, 4) + number(1, 4) + number(0x50, 1) +
                            number(flags, 1) + number(1000, 2) + number(0, 4) + payload);
}

bytes ethernet_frame(const bytes &ip, uint8_t mac, const bytes &tags)
{
    return bytes("\2\0\0\0\0\xFE", 6) + bytes("\2\0\0\0\0", 5) + number(mac, 1) + tags +
           number(ip[0] >> 4 == 4 ? 0x0800 : 0x86DD, 2) + ip;
}

void write_capture(const std::string &path, const std::vector<captured_frame> &frames, int link_type)
{
    pcap_t *dead = pcap_open_dead(link_type, 65535);
    pcap_dumper_t *file = pcap_dump_open(dead, path.c_str());
    for (const captured_frame &one : frames) {
        pcap_pkthdr header{};
        header.ts.tv_sec = static_cast<time_t>(one.time);
        header.ts.tv_usec = static_cast<suseconds_t>((one.time - static_cast<double>(header.ts.tv_sec)) * 1e6);
        header.caplen = header.len = static_cast<bpf_u_int32>(one.frame.size());
        pcap_dump(reinterpret_cast<u_char *>(file), &header, reinterpret_cast<const u_char *>(one.frame.data()));
    }
    pcap_dump_close(file);
    pcap_close(dead);
}
