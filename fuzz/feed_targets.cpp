// What the feed reads from the network and from files: hellos, QUIC packets, DNS answers, whole captures, catalogues.
#include "feed/classifier.h"
#include "feed/client_hello.h"
#include "feed/conntrack_entry.h"
#include "feed/link_layer.h"
#include "feed/netlink_socket.h"
#include "feed/nflog_message.h"
#include "feed/ring_block.h"
#include "fuzz/targets.h"
#include "tests/feed/spoken.h"

#include <linux/if_packet.h>
#include <linux/netfilter/nfnetlink_conntrack.h>
#include <linux/netfilter/nfnetlink_log.h>
#include <linux/netlink.h>
#include <stdlib.h>

namespace {

const ends phone_to_server{"192.168.1.20", "203.0.113.5", 40000, 443};
const bytes connection_id = "connection";

void must(bool holds)
{
    if (!holds)
        abort();
}

// A block of its own size, for the address sanitizer.
std::vector<uint8_t> block_of(const bytes &from)
{
    return {from.begin(), from.end()};
}

void take_hello(const bytes &input)
{
    std::vector<uint8_t> block = block_of(input);
    hello_answer answer = read_client_stream({block.data(), block.size()});
    must((answer.outcome == hello_outcome::named) <= !answer.host.empty());
    read_client_hello({block.data(), block.size()});
    // In two segments, the second first: nothing else may come out once the stream is whole.
    stream_budget budget;
    stream_pieces pieces(budget);
    size_t half = block.size() / 2;
    pieces.add(half, {block.data() + half, block.size() - half});
    pieces.add(0, {block.data(), half});
    must(read_client_stream(pieces.beginning()).host == answer.host);
}

std::vector<bytes> hello_seeds()
{
    bytes hello = client_hello("www.films.example", {40, true, true});
    return {tls_records(hello), tls_records(hello, 50), hello, tls_records(client_hello("", {0, false})),
            "GET / HTTP/1.1\r\nHost: www.films.example:80\r\n\r\n"};
}

// A datagram as it came, and its bytes as the frames of a packet that decrypts.
void take_quic(const bytes &input)
{
    stream_budget budget;
    for (const bytes &datagram : {input, quic_initial(1, connection_id, input.substr(0, 1200) + bytes(20, 0))}) {
        std::vector<uint8_t> block = block_of(datagram);
        stream_pieces crypto(budget);
        quic_keys keys;
        for (int twice = 0; twice < 2; twice++)
            read_quic_datagram({block.data(), block.size()}, &keys, &crypto);
        read_client_hello(crypto.beginning());
    }
    must(budget.used == 0);
}

std::vector<bytes> quic_seeds()
{
    bytes hello = client_hello("www.films.example");
    bytes frames = crypto_frame(hello, 60, 500) + bytes("\1\2\5\0\0\1", 6) + crypto_frame(hello, 0, 70);
    bytes initial = quic_initial(1, connection_id, frames);
    return {frames, initial, initial + initial, quic_initial(0x6b3343cf, connection_id, frames)};
}

void take_dns(const bytes &input)
{
    std::vector<uint8_t> block = block_of(input);
    dns_answer answer;
    if (!read_dns_answer({block.data(), block.size()}, &answer))
        return;
    must(!answer.question.empty() && !answer.addresses.empty() && answer.addresses.size() <= most_dns_addresses);
    dns_memory memory(8);
    memory.remember(ipv4_address(reinterpret_cast<const uint8_t *>("\xC0\xA8\1\2")), answer, 1);
    must(memory.size() <= 8);
}

std::vector<bytes> dns_seeds()
{
    return {dns_message("a.example", {{"a.example", 5, "b.example"}, {"b.example", 1, "203.0.113.5"}}),
            dns_message("a.example", {{"a.example", 28, "2001:db8::5"}, {"a.example", 28, "2001:db8::6"}})};
}

bytes record(uint8_t type, const bytes &frame)
{
    return number(type, 1) + number(frame.size(), 2) + frame;
}

// Frames of a capture, each behind a byte for the link type and two for its length; every 16th microsecond one of them.
void take_capture(const bytes &input)
{
    static const std::vector<ip_network> lan = [] {
        std::vector<ip_network> networks;
        read_lan("private", &networks);
        return networks;
    }();
    static const int types[] = {1, 113, 276, 12, 0};
    classifier_options options;
    options.lan = lan;
    options.use_dpi = false; // its start alone takes longer than a thousand inputs
    options.most_flows = 16;
    options.most_devices = 4;
    options.most_inspections = 8;
    options.most_dns_names = 8;
    app_catalogue apps;
    apps.apps[3001] = {3001, 3, "Films", 100, 10};
    apps.hosts["films.example"] = {3001, false, false};
    classifier classify(options, apps, [](const hit &one) { must(one.up_bytes + one.down_bytes > 0); });
    packet one{};
    one.time_us = 1700000000000000;
    for (size_t at = 0; at + 3 <= input.size();) {
        int type = types[static_cast<uint8_t>(input[at]) % 5];
        size_t size = static_cast<uint8_t>(input[at + 1]) << 8 | static_cast<uint8_t>(input[at + 2]);
        std::vector<uint8_t> frame = block_of(input.substr(at + 3, size));
        at += 3 + size;
        link_frame found;
        if (!find_ip(type, {frame.data(), frame.size()}, &found))
            continue;
        fill_packet(found, static_cast<uint32_t>(size), &one);
        one.time_us += 3000000;
        classify.take(one);
    }
    classify.finish();
}

std::vector<bytes> capture_seeds()
{
    const ends back_to_phone = back(phone_to_server);
    bytes hello = client_hello("www.films.example");
    bytes talk = record(0, ethernet_frame(tcp_packet(phone_to_server, 1, 2, {}), 7)) +
                 record(3, tcp_packet(phone_to_server, 2, 16, tls_records(hello))) +
                 record(3, tcp_packet(back_to_phone, 2, 16, bytes(300, 'd'))) +
                 record(3, tcp_packet(phone_to_server, 400, 4, {}));
    bytes quic = record(3, udp_packet(phone_to_server, quic_initial(1, connection_id, crypto_frame(hello, 0, 500)))) +
                 record(3, udp_packet(back_to_phone, bytes(200, 'd')));
    bytes names = record(3, udp_packet({"8.8.8.8", "192.168.1.20", 53, 5000},
                                       dns_message("films.example", {{"films.example", 1, "203.0.113.5"}})));
    bytes v6 = record(0, ethernet_frame(udp_packet({"2001:db8::1", "2001:db8::2", 4000, 443}, bytes(100, 'q')), 7));
    return {talk, names + quic, talk + v6 + names, v6};
}

// A datagram of the kernel's packet log.
void take_nflog(const bytes &input)
{
    std::vector<uint8_t> block = block_of(input);
    const char *data = reinterpret_cast<const char *>(block.data());
    const nlmsghdr *message = nullptr;
    while ((message = next_netlink_message(data, static_cast<int>(block.size()), message)) != nullptr) {
        logged_packet logged;
        if (!read_logged_packet(message, 1700000000000000, &logged))
            continue;
        must(logged.one.captured > 0 && logged.one.captured <= block.size() && logged.one.length >= logged.one.captured);
        bytes copy(reinterpret_cast<const char *>(logged.one.bytes), logged.one.captured); // all of it must be there
        must(copy.size() <= block.size());
        ip_packet ip;
        read_ip_packet(logged.one, &ip);
    }
}

std::vector<bytes> nflog_seeds()
{
    bytes packet = tcp_packet(phone_to_server, 1, 2, bytes(100, 'd'));
    bytes time = number(1700000000, 8) + number(5, 8), link = number(6, 2) + bytes(2, 0) + "\2abcde" + bytes(2, 0);
    bytes logged = netlink_message(NFNL_SUBSYS_ULOG << 8 | NFULNL_MSG_PACKET,
                                   netlink_attribute(NFULA_PAYLOAD, packet) + netlink_attribute(NFULA_TIMESTAMP, time) +
                                       netlink_attribute(NFULA_HWADDR, link) + netlink_attribute(NFULA_SEQ, number(7, 4)));
    return {logged, logged + logged};
}

void take_conntrack(const bytes &input)
{
    std::vector<uint8_t> block = block_of(input);
    const char *data = reinterpret_cast<const char *>(block.data());
    const nlmsghdr *message = nullptr;
    while ((message = next_netlink_message(data, static_cast<int>(block.size()), message)) != nullptr) {
        conntrack_entry entry;
        if (read_conntrack_entry(message, &entry))
            must(entry.client.address.family != 0 && entry.client.address.family == entry.server.address.family);
    }
}

void take_ring(const bytes &input)
{
    std::vector<uint8_t> memory = block_of(input);
    ring_block block({memory.data(), memory.size()});
    ring_frame frame;
    for (size_t frames = 0; block.next(&frame); frames++) {
        must(frames < input.size() && frame.bytes.size <= frame.length);
        bytes copy(reinterpret_cast<const char *>(frame.bytes.data), frame.bytes.size); // all of it must be there
        must(copy.size() <= input.size());
    }
}

std::vector<bytes> ring_seeds()
{
    tpacket_block_desc block{};
    tpacket3_hdr header{};
    const bytes frame = ethernet_frame(tcp_packet(phone_to_server, 1, 2, bytes(100, 'd')), 7);
    header.tp_mac = sizeof(header);
    header.tp_snaplen = header.tp_len = static_cast<uint32_t>(frame.size());
    header.tp_next_offset = static_cast<uint32_t>(sizeof(header) + frame.size());
    block.hdr.bh1.num_pkts = 2;
    block.hdr.bh1.offset_to_first_pkt = sizeof(block);
    block.hdr.bh1.blk_len = static_cast<uint32_t>(sizeof(block) + 2 * header.tp_next_offset);
    const bytes one = bytes(reinterpret_cast<const char *>(&header), sizeof(header)) + frame;
    return {bytes(reinterpret_cast<const char *>(&block), sizeof(block)) + one + one};
}

std::vector<bytes> conntrack_seeds()
{
    return {conntrack_message(phone_to_server, 1000, 50000),
            conntrack_message({"2001:db8::1", "2001:db8::2", 4000, 443}, 1, 2)};
}

void take_apps(const bytes &input)
{
    app_catalogue apps;
    std::vector<std::string> complaints;
    read_apps_text("apps.conf", input, &apps, &complaints);
    for (const auto &app : apps.apps)
        must(app.first != 0 && app.first != 8 && !app.second.name.empty());
    apps.by_host("a.b.films.example");
}

std::vector<bytes> apps_seeds()
{
    return {"3001 3 Films 300 60 films.example a.*.films.example not:x.films.example ndpi:Films call:F net:10.0.0.0/8\n"
            "3001 - - - 7 also:b.example # more\n"};
}

} // namespace

const std::vector<fuzz_target> fuzz_targets = {
    {"feed_hello", take_hello, hello_seeds},
    {"feed_quic", take_quic, quic_seeds},
    {"feed_dns", take_dns, dns_seeds},
    {"feed_capture", take_capture, capture_seeds},
    {"feed_apps", take_apps, apps_seeds},
    {"feed_nflog", take_nflog, nflog_seeds},
    {"feed_conntrack", take_conntrack, conntrack_seeds},
    {"feed_ring", take_ring, ring_seeds},
};
