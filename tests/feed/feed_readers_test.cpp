// The readers of what the network says: headers, hellos, QUIC Initials, DNS answers.
#include "feed/dns_answer.h"
#include "feed/hello_reader.h"
#include "feed/link_layer.h"
#include "feed/quic_crypto.h"
#include "tests/feed/spoken.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

const std::string film_host = "occ-0-1.1.nflxso.net";
const ends phone_to_server{"192.168.1.20", "203.0.113.5", 40000, 443};

packet packet_of(const bytes &ip)
{
    packet one{};
    one.bytes = reinterpret_cast<const uint8_t *>(ip.data());
    one.captured = one.length = static_cast<uint32_t>(ip.size());
    return one;
}

struct feed_hello_side : testing::Test {
    stream_budget budget;

    // What the reader says after these packets; it stops at the first that tells something.
    hello_answer read(const std::vector<bytes> &packets)
    {
        hello_reader reader(budget);
        hello_answer answer;
        for (const bytes &one : packets) {
            ip_packet ip;
            EXPECT_EQ(read_ip_packet(packet_of(one), &ip), ip_outcome::tcp_or_udp);
            answer = reader.take(ip);
            if (answer.outcome != hello_outcome::needs_more)
                break;
        }
        return answer;
    }
    hello_answer read_datagrams(const std::vector<bytes> &datagrams)
    {
        std::vector<bytes> packets;
        for (const bytes &one : datagrams)
            packets.push_back(udp_packet(phone_to_server, one));
        return read(packets);
    }
};

bytes hex(const uint8_t *from, size_t size)
{
    bytes out;
    char pair[3];
    for (size_t i = 0; i < size; i++) {
        snprintf(pair, sizeof(pair), "%02x", from[i]);
        out += pair;
    }
    return out;
}

} // namespace

TEST_F(feed_hello_side, reads_a_hello_from_segments_in_any_order)
{
    constexpr uint32_t isn = 0xFFFFFE00; // the sequence number wraps within the hello
    bytes stream = tls_records(client_hello(film_host, {1200}), 700);
    std::vector<bytes> segments;
    for (size_t at = 0; at < stream.size(); at += 400)
        segments.push_back(tcp_packet(phone_to_server, isn + 1 + static_cast<uint32_t>(at), 0x18, stream.substr(at, 400)));
    bytes syn = tcp_packet(phone_to_server, isn, 2, {});
    std::vector<size_t> order(segments.size());
    for (size_t i = 0; i < order.size(); i++)
        order[i] = i;
    do {
        for (bool with_syn : {true, false}) {
            std::vector<bytes> packets(with_syn ? 1 : 0, syn);
            for (size_t i : order)
                packets.push_back(segments[i]);
            packets.insert(packets.begin() + 1, packets.back()); // one of them came twice
            hello_answer answer = read(packets);
            ASSERT_EQ(answer.outcome, hello_outcome::named);
            ASSERT_EQ(answer.host, film_host);
        }
    } while (std::next_permutation(order.begin(), order.end()));
    EXPECT_EQ(budget.used, 0u);
}

TEST_F(feed_hello_side, tells_hellos_with_a_name_from_those_without)
{
    const struct {
        bytes stream;
        hello_outcome outcome;
        std::string host;
    } cases[] = {
        {tls_records(client_hello("WWW.Example.ORG.")), hello_outcome::named, "www.example.org"},
        {tls_records(client_hello("a.example", {0, true, true})), hello_outcome::named,
         "a.example"}, // as browsers say it without keys
        {tls_records(client_hello("cloudflare-ech.com", {0, true, true})), hello_outcome::nameless, "cloudflare-ech.com"},
        {tls_records(client_hello("", {0, false})), hello_outcome::nameless, ""},
        {tls_records(client_hello("192.0.2.1")), hello_outcome::nameless, ""},
        {tls_records(client_hello("a\"b.example")), hello_outcome::nameless, ""},
        {"GET /a HTTP/1.1\r\nAccept: */*\r\nhost:  video.example:8080\r\n\r\n", hello_outcome::named, "video.example"},
        {"GET /a HTTP/1.1\r\nAccept: */*\r\n\r\nhost: body.example\r\n", hello_outcome::nameless, ""},
        {"GET /a HTTP/1.1\r\nHost: vid", hello_outcome::needs_more, ""},
        {"SSH-2.0-OpenSSH_9.2\r\n", hello_outcome::none, ""},
        {"\x16\x03\x01\x40", hello_outcome::needs_more, ""},
        {bytes("\x16\x03\x01\x00\x04\x02\x00\x00\x10", 9), hello_outcome::none, ""}, // a server's
        {"\x17\x03\x03\x01\x00", hello_outcome::none, ""},
    };
    for (const auto &one : cases) {
        hello_answer answer = read_client_stream(view(one.stream));
        EXPECT_EQ(answer.outcome, one.outcome) << one.stream;
        EXPECT_EQ(answer.host, one.host);
    }
}

TEST(feed_quic, keys_are_those_of_the_standards_examples)
{
    const bytes id = "\x83\x94\xc8\xf0\x3e\x51\x57\x08";
    quic_keys keys;
    ASSERT_TRUE(derive_quic_keys(1, view(id), &keys));
    EXPECT_EQ(hex(keys.key.data(), 16), "1f369613dd76d5467730efcbe3b1a22d");
    EXPECT_EQ(hex(keys.iv.data(), 12), "fa044b2f42a3fd3b46fb255c");
    EXPECT_EQ(hex(keys.header_key.data(), 16), "9f50449e04a0e810283a1e9933adedd2");
    ASSERT_TRUE(derive_quic_keys(0x6b3343cf, view(id), &keys));
    EXPECT_EQ(hex(keys.key.data(), 16), "8b1a0bc121284290a29e0971b5cd045d");
    EXPECT_EQ(hex(keys.iv.data(), 12), "91f73e2351d8fa91660e909f");
    EXPECT_EQ(hex(keys.header_key.data(), 16), "45b95e15235d6f45a6b19cbcb0294ba9");
}

TEST_F(feed_hello_side, reads_quic_hellos_over_several_packets_in_any_order)
{
    const bytes id = "connection";
    bytes hello = client_hello(film_host, {1800}); // a post-quantum key share before the name
    for (uint32_t version : {0x00000001u, 0x6b3343cfu, 0xff00001du}) {
        // Chrome's way: frames shuffled, cut small, with pings and padding between, over two datagrams.
        bytes first = crypto_frame(hello, 900, 100) + bytes(3, 1) + crypto_frame(hello, 0, 500) + bytes(20, 0);
        bytes second = crypto_frame(hello, 1000, 2000) + bytes("\2\5\0\0\1", 5) + crypto_frame(hello, 450, 460);
        std::vector<bytes> datagrams{quic_initial(version, id, first), quic_initial(version, id, second)};
        for (int turn = 0; turn < 2; turn++, std::swap(datagrams[0], datagrams[1])) {
            hello_answer answer = read_datagrams(datagrams);
            EXPECT_EQ(answer.outcome, hello_outcome::named) << version;
            EXPECT_EQ(answer.host, film_host);
        }
        EXPECT_EQ(read_datagrams({datagrams[0]}).outcome, hello_outcome::needs_more);
        // Both in one datagram.
        EXPECT_EQ(read_datagrams({datagrams[0] + datagrams[1]}).host, film_host);
        // The server has chosen another id, the keys stay.
        EXPECT_EQ(read_datagrams({datagrams[0], quic_initial(version, "of the server", second, id)}).host, film_host);
        // A version that nobody knows is refused, and the client comes again.
        bytes unknown = number(0xC00A1A2A3A, 5) + bytes(1300, 'u');
        EXPECT_EQ(read_datagrams({unknown, datagrams[1], datagrams[0]}).host, film_host);
        // After a Retry the keys are those of the new id, and the hello begins again.
        bytes whole = crypto_frame(hello, 0, hello.size());
        EXPECT_EQ(read_datagrams({datagrams[0], quic_initial(version, "retried", whole)}).host, film_host);
    }
}

TEST_F(feed_hello_side, survives_quic_that_is_none)
{
    bytes hello = client_hello(film_host);
    bytes good = quic_initial(1, "connection", crypto_frame(hello, 0, hello.size()));
    bytes broken = good;
    broken[broken.size() - 1] ^= 1;
    EXPECT_EQ(read_datagrams({broken}).outcome, hello_outcome::needs_more);
    EXPECT_EQ(read_datagrams({broken, good}).host, film_host);
    EXPECT_EQ(read_datagrams({bytes(100, 'x')}).outcome, hello_outcome::none);
    EXPECT_EQ(read_datagrams(std::vector<bytes>(12, broken)).outcome, hello_outcome::none);
    // A hostile client opens gaps without end; its stream is given up and its memory comes back.
    std::vector<bytes> gaps;
    for (size_t i = 0; i < 11; i++)
        gaps.push_back(quic_initial(1, "connection",
                                    crypto_frame(bytes(16000, 'g'), 5000 * i % 16000 + i * 2 + 1, 1) +
                                        crypto_frame(bytes(16000, 'g'), 300 * i + 9, 1) + bytes(40, 0)));
    read_datagrams(gaps);
    EXPECT_EQ(budget.used, 0u);
}

TEST(feed_streams, keep_what_came_first_within_their_bounds)
{
    stream_budget budget{100, 0};
    {
        stream_pieces pieces(budget);
        EXPECT_TRUE(pieces.add(4, view("EFGH")));
        EXPECT_EQ(pieces.beginning().size, 0u);
        EXPECT_TRUE(pieces.add(0, view("abcdefghij")));
        EXPECT_EQ(bytes(reinterpret_cast<const char *>(pieces.beginning().data), pieces.beginning().size), "abcdEFGHij");
        EXPECT_TRUE(pieces.move_back(2));
        EXPECT_TRUE(pieces.add(0, view("..")));
        EXPECT_EQ(pieces.beginning().size, 12u);
        EXPECT_FALSE(pieces.add(90, view(bytes(20, 'x')))); // beyond the budget
        EXPECT_TRUE(pieces.add(most_stream_bytes, view("beyond")));
        EXPECT_EQ(budget.used, 12u);
    }
    EXPECT_EQ(budget.used, 0u);
}

TEST(feed_dns, gives_the_addresses_to_the_name_that_was_asked_for)
{
    dns_answer answer;
    ASSERT_TRUE(read_dns_answer(view(dns_message("www.Netflix.com", {{"www.Netflix.com", 5, "edge.cdn.example"},
                                                                     {"edge.cdn.example", 5, "e1.cdn.example"},
                                                                     {"e1.cdn.example", 1, "203.0.113.9"},
                                                                     {"other.example", 1, "203.0.113.66"}})),
                                &answer));
    EXPECT_EQ(answer.question, "www.netflix.com");
    ASSERT_EQ(answer.addresses.size(), 1u);
    EXPECT_EQ(address_text(answer.addresses[0].address), "203.0.113.9");
    ASSERT_TRUE(read_dns_answer(view(dns_message("a.example", {{"a.example", 28, "2001:db8::9"}}, 7)), &answer));
    EXPECT_EQ(address_text(answer.addresses[0].address), "2001:db8::9");
    EXPECT_EQ(answer.addresses[0].ttl, 7u);

    bytes good = dns_message("a.example", {{"a.example", 1, "203.0.113.9"}});
    bytes question = good, failed = good, endless = good, two = good;
    question[2] = 0x01;
    failed[3] = '\x83';
    two[5] = 2;
    endless[12] = '\xC0'; // the question's name is a pointer to itself
    endless[13] = 12;
    for (const bytes &bad : {question, failed, endless, two, good.substr(0, good.size() - 1), bytes()})
        EXPECT_FALSE(read_dns_answer(view(bad), &answer));
}

TEST(feed_packets, are_read_behind_every_header_and_never_beyond_their_end)
{
    const ends v6{"2001:db8::1", "2001:db8::2", 1000, 53};
    bytes plain = udp_packet(v6, "payload");
    auto with_header = [&](uint8_t kind, const bytes &header) {
        bytes out = plain;
        out[6] = static_cast<char>(kind);
        out.insert(40, header);
        return out.replace(4, 2, number(out.size() - 40, 2));
    };
    bytes options = number(17, 1) + number(1, 1) + bytes(14, 0);
    bytes later = number(17, 1) + bytes(1, 0) + number(0x0010, 2) + bytes(4, 0);
    bytes first = number(17, 1) + bytes(1, 0) + number(0x0001, 2) + bytes(4, 0);
    bytes v4 = udp_packet({"10.0.0.1", "10.0.0.2", 5, 6}, "payload");
    bytes v4_later = v4;
    v4_later[7] = 9;
    bytes padded = v4 + bytes(18, 0);
    const struct {
        bytes ip;
        ip_outcome outcome;
    } cases[] = {
        {plain, ip_outcome::tcp_or_udp},
        {with_header(0, options), ip_outcome::tcp_or_udp},
        {with_header(44, first), ip_outcome::tcp_or_udp},
        {with_header(44, later), ip_outcome::fragment},
        {with_header(58, {}), ip_outcome::other},
        {v4, ip_outcome::tcp_or_udp},
        {v4_later, ip_outcome::fragment},
        {padded, ip_outcome::tcp_or_udp},
        {bytes("\x4F", 1) + v4.substr(1), ip_outcome::malformed},
        {bytes("\x70", 1) + v4.substr(1), ip_outcome::malformed},
    };
    for (const auto &one : cases) {
        ip_packet ip;
        EXPECT_EQ(read_ip_packet(packet_of(one.ip), &ip), one.outcome);
        if (one.outcome == ip_outcome::tcp_or_udp) {
            EXPECT_EQ(bytes(reinterpret_cast<const char *>(ip.payload.data), ip.payload.size), "payload");
        }
        for (size_t cut = 0; cut < one.ip.size(); cut++) { // in a block of its own, for the address sanitizer
            bytes part(one.ip, 0, cut);
            part.shrink_to_fit();
            read_ip_packet(packet_of(part), &ip);
        }
    }
    ip_packet ip;
    read_ip_packet(packet_of(padded), &ip);
    EXPECT_EQ(ip.bytes, v4.size()) << "padding behind the packet counts for nothing";
}

TEST(feed_frames, carry_ip_behind_each_link_layer)
{
    bytes ip = udp_packet({"10.0.0.1", "10.0.0.2", 5, 6}, "payload");
    bytes mac = bytes("\2\0\0\0\0\x07", 6);
    bytes vlan = number(0x81000005, 4);
    const struct {
        int type;
        bytes frame;
        bool has_mac;
    } cases[] = {
        {1, ethernet_frame(ip, 7), true},
        {1, ethernet_frame(ip, 7, vlan), true},
        {1, ethernet_frame(ip, 7, number(0x88A80009, 4) + vlan), true},
        {1, bytes(6, 'd') + mac + number(0x886411000001, 6) + number(0, 2) + number(0x0021, 2) + ip, true},
        {113, number(4, 2) + number(1, 2) + number(6, 2) + mac + number(0, 2) + number(0x0800, 2) + ip, true},
        {276,
         number(0x0800, 2) + number(0, 2) + number(3, 4) + number(1, 2) + number(4, 1) + number(6, 1) + mac + number(0, 2) + ip,
         true},
        {12, ip, false},
        {0, number(2, 4) + ip, false},
    };
    for (const auto &one : cases) {
        link_frame found;
        ASSERT_TRUE(find_ip(one.type, view(one.frame), &found)) << one.type;
        EXPECT_EQ(bytes(reinterpret_cast<const char *>(found.ip.data), found.ip.size), ip) << one.type;
        EXPECT_EQ(found.has_mac, one.has_mac);
        EXPECT_EQ(found.mac[5], one.has_mac ? 7 : 0);
    }
    link_frame found;
    EXPECT_FALSE(find_ip(1, view(bytes(12, 'm') + number(0x0806, 2) + bytes(28, 'a')), &found));
    EXPECT_FALSE(find_ip(147, view(ip), &found));
}
