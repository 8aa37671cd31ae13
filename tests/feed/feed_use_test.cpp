// Stories: what a feed_household does, packet by packet, and what the classifier says of it.
#include "feed/classifier.h"
#include "tests/feed/spoken.h"

#include <gtest/gtest.h>
#include <map>

namespace {

constexpr uint64_t second = 1000000;
constexpr uint64_t evening = 1700000000 * second;
const char *const phone = "192.168.1.20";
const char *const server = "203.0.113.5";

constexpr const char *some_apps =
    "2001 2 Talk 20 2 talk.example call:Spotify net:198.51.100.0/24\n"
    "3001 3 Films 300 60 films.example\n"
    "6001 6 Friends 150 15 friends.example also:buttons.friends.example not:ads.friends.example ndpi:Pandora\n";

struct feed_household : testing::Test {
    classifier_options options;
    std::vector<hit> hits;
    std::vector<flow_report> flows;
    std::unique_ptr<classifier> classify;
    uint64_t now = evening;
    uint16_t port = 40000;

    feed_household() { read_lan("private", &options.lan); }
    void start()
    {
        app_catalogue apps;
        std::vector<std::string> complaints;
        read_apps_text("test", some_apps, &apps, &complaints);
        classify = std::make_unique<classifier>(
            options, apps, [this](const hit &one) { hits.push_back(one); },
            [this](const flow_report &one) { flows.push_back(one); });
    }
    void show(const bytes &ip, int mac = 0)
    {
        if (!classify)
            start();
        packet one{};
        one.time_us = now;
        one.bytes = reinterpret_cast<const uint8_t *>(ip.data());
        one.captured = one.length = static_cast<uint32_t>(ip.size());
        one.has_mac = mac != 0;
        one.mac[5] = static_cast<uint8_t>(mac);
        classify->take(one);
    }
    void wait(double seconds) { now += static_cast<uint64_t>(seconds * static_cast<double>(second)); }

    // A connection with its hello; `host` empty: bytes of no kind that anybody knows.
    ends connect(const std::string &host, const char *from = phone, const char *to = server, int mac = 0)
    {
        ends of{from, to, port++, 443};
        show(tcp_packet(of, 100, tcp_syn, {}), mac);
        show(tcp_packet(back(of), 900, tcp_syn | tcp_ack, {}));
        show(tcp_packet(of, 101, tcp_ack, host.empty() ? "\x01\x02\x03\x04 something" : tls_records(client_hello(host))), mac);
        show(tcp_packet(back(of), 901, tcp_ack, "answer"));
        return of;
    }
    // Bytes from the server, in packets.
    void receive(const ends &of, size_t size)
    {
        for (; size > 0; size -= std::min<size_t>(size, 1400))
            show(tcp_packet(back(of), 1000, tcp_ack, bytes(std::min<size_t>(size, 1400), 'd')));
    }
    static flow_key key_of(const ends &of)
    {
        flow_key key{{}, {}, of.from_port, of.to_port, protocol_tcp};
        read_address(of.from, &key.device);
        read_address(of.to, &key.server);
        return key;
    }
    void close(const ends &of) { show(tcp_packet(of, 500, tcp_rst, {})); }
    void finish()
    {
        if (classify)
            classify->finish();
    }
    // What was told, as "app:m" (marked) or "app:p" (plain), by device.
    std::string told(const std::string &device = phone)
    {
        std::string out;
        for (const hit &one : hits)
            if (address_text(one.device) == device)
                out += (out.empty() ? "" : " ") + std::to_string(one.app) + (one.is_marked ? ":m" : ":p");
        return out;
    }
};

} // namespace

TEST_F(feed_household, tells_a_film_from_its_start_to_its_pause)
{
    ends film = connect("www.films.example");
    receive(film, 250000); // 0 s: not enough yet
    wait(10);
    receive(film, 60000); // together more than 300 kB
    wait(10);
    receive(film, 70000);
    wait(10);
    receive(film, 70000); // 200 kB in 30 s, but in use
    wait(10);
    receive(film, 50000); // too little
    wait(10);
    receive(film, 61000);
    wait(190); // three minutes without
    receive(film, 70000);
    finish();
    EXPECT_EQ(told(), "3001:m 3001:m 3001:p 3001:p");
    EXPECT_EQ(hits[0].by, evidence::hello);
    EXPECT_EQ(hits[0].host, "www.films.example");
    EXPECT_EQ(hits[0].time_us, evening + 20 * second);
    EXPECT_EQ(hits[0].flow.server_port, 443);
    ASSERT_EQ(flows.size(), 1u);
    uint64_t sum = flows[0].up_bytes + flows[0].down_bytes;
    EXPECT_GT(sum, 631000u);
}

TEST_F(feed_household, stays_silent_for_a_day_of_a_messengers_heartbeat)
{
    ends talk = connect("mqtt.talk.example");
    receive(talk, 6000);
    for (int minute = 0; minute < 24 * 60; minute++) {
        show(tcp_packet(talk, 200, tcp_ack, bytes(60, 'u')));
        receive(talk, minute % 20 == 0 ? 4000 : 90); // now and then messages arrive
        wait(60);
    }
    finish();
    EXPECT_EQ(told(), "");
    EXPECT_GT(classify->counters()[feed_kbytes_told], 480u);
}

TEST_F(feed_household, takes_no_share_button_for_a_visit)
{
    // A morning of news pages, each with the buttons of the network and its advertisements.
    for (int page = 0; page < 20; page++) {
        receive(connect("www.news.example"), 900000);
        receive(connect("buttons.friends.example"), 400000);
        receive(connect("ads.friends.example"), 400000);
        receive(connect("www.friends.example"), 30000);
        wait(45);
    }
    EXPECT_EQ(told(), "");
    // A real visit, during which its embedded parts count as well.
    receive(connect("www.friends.example"), 160000);
    wait(35);
    receive(connect("buttons.friends.example"), 20000);
    finish();
    EXPECT_EQ(told(), "6001:m 6001:p");
}

TEST_F(feed_household, stays_silent_for_scans_and_for_the_lan)
{
    for (int i = 0; i < 3000; i++) {
        std::string victim = "198.51.100." + std::to_string(i % 250 + 1); // of a network that tells an app
        show(tcp_packet({phone, victim, port++, static_cast<uint16_t>(i)}, 1, tcp_syn, {}));
        show(udp_packet({phone, victim, port++, static_cast<uint16_t>(i)}, bytes(40, 'p')));
        show(tcp_packet({victim, phone, static_cast<uint16_t>(i), 80}, 1, tcp_syn, {}));
    }
    for (const char *to : {"192.168.1.255", "255.255.255.255", "239.255.255.250", "192.168.1.30"})
        for (int i = 0; i < 100; i++)
            show(udp_packet({phone, to, 17500, 17500}, bytes(1000, 'd')));
    show(udp_packet({"fe80::1", "ff02::fb", 5353, 5353}, bytes(1000, 'd')));
    // Somebody outside opens connections to a device, and it answers.
    ends camera{"192.168.1.40", "198.51.100.9", 8080, 55555};
    show(tcp_packet(back(camera), 1, tcp_syn, {}));
    show(tcp_packet(camera, 1, tcp_syn | tcp_ack, {}));
    for (int i = 0; i < 100; i++) {
        show(tcp_packet(back(camera), 2, tcp_ack, bytes(1000, 'q')));
        show(tcp_packet(camera, 2, tcp_ack, bytes(1000, 'a')));
    }
    finish();
    EXPECT_TRUE(hits.empty());
    EXPECT_EQ(classify->counters()[feed_packets_local], 401u);
}

TEST_F(feed_household, goes_by_hello_then_dns_then_address)
{
    const bytes answer =
        dns_message("cdn.films.example", {{"cdn.films.example", 5, "x.cloud.example"}, {"x.cloud.example", 1, server}});
    // The resolver stands in the LAN.
    show(udp_packet({"192.168.1.1", phone, 53, 5000}, answer));
    close(connect("www.friends.example"));
    close(connect("unknown.example"));
    close(connect(""));
    close(connect("", "192.168.1.21"));
    close(connect("cloudflare-ech.com")); // an encrypted hello: what was asked for tells
    close(connect("", phone, "198.51.100.7"));
    show(udp_packet({phone, server, 6000, 8443}, quic_initial(1, "an id", "no frames", "another's keys")));
    close(connect("cloudflare-ech.com", phone, "203.0.113.77"));
    // Another device asked for another name at the same address: only its own question tells a device.
    show(udp_packet({"192.168.1.1", "192.168.1.22", 53, 5000},
                    dns_message("www.friends.example", {{"www.friends.example", 1, server}})));
    close(connect("", "192.168.1.22"));
    close(connect("", "192.168.1.21"));
    close(connect(""));
    finish();
    std::string seen;
    for (const flow_report &one : flows)
        if (one.key.server_port == 443)
            seen += std::to_string(one.app) + evidence_name(one.by)[0] + " ";
    EXPECT_EQ(seen, "6001h 0h 3001d 3001d 3001d 2001a 0n 6001d 0n 3001d ");
    EXPECT_EQ(classify->counters()[feed_hellos_nameless], 2u);
    EXPECT_EQ(classify->counters()[feed_quic_unreadable], 1u);
    EXPECT_EQ(flows[0].host, "www.friends.example");
}

TEST_F(feed_household, counts_ipv6_for_the_device_behind_the_link_address)
{
    const char *v6 = "2001:db8:1::20", *v6_server = "2001:db8:ffff::5";
    show(udp_packet({phone, "192.168.1.1", 5000, 53}, "?"), 7); // its IPv4 address is seen within the LAN only
    show(udp_packet({"192.168.1.1", phone, 53, 5000}, "!"), 1);
    receive(connect("www.films.example", v6, v6_server, 7), 200000);
    receive(connect("www.films.example", phone, server, 7), 120000);
    receive(connect("www.films.example", "2001:db8:1::99", v6_server, 8), 400000); // no IPv4 address known
    // It asked over IPv6, of a resolver on the link or in another network of the LAN, and connects over IPv4.
    const bytes answer = dns_message("www.friends.example", {{"www.friends.example", 1, "203.0.113.8"}});
    wait(10);
    show(udp_packet({"fe80::1", v6, 53, 5000}, answer), 1);
    receive(connect("", phone, "203.0.113.8", 7), 200000);
    wait(10);
    show(udp_packet({"fd00::1", v6, 53, 5000}, dns_message("www.films.example", {{"www.films.example", 1, "203.0.113.8"}})), 1);
    receive(connect("", phone, "203.0.113.8", 7), 400000);
    finish();
    EXPECT_EQ(told(), "3001:m 6001:m 3001:m");
    for (const flow_report &one : flows)
        EXPECT_NE(address_text(one.key.device), "fe80::1") << "what has a link-local end never leaves the link";
    EXPECT_EQ(told("2001:db8:1::99"), "3001:m");
    EXPECT_EQ(classify->counters()[feed_hits_not_told], 1u);
}

TEST_F(feed_household, knows_who_asked_the_router_over_ipv6)
{
    read_lan("192.168.1.0/24", &options.lan);
    show(udp_packet({phone, "203.0.113.9", 5000, 443}, "?"), 7);
    show(udp_packet({"fe80::20", "fe80::1", 5000, 53}, "?"), 7);
    show(udp_packet({"fe80::1", "fe80::20", 53, 5000}, dns_message("www.films.example", {{"www.films.example", 1, server}})));
    // Another device asks for another name at the same address.
    show(udp_packet({"192.168.1.1", "192.168.1.22", 53, 5000},
                    dns_message("www.friends.example", {{"www.friends.example", 1, server}})));
    receive(connect("", phone, server, 7), 400000);
    finish();
    EXPECT_EQ(told(), "3001:m");
}

TEST_F(feed_household, keeps_a_device_from_pushing_out_the_others)
{
    options.most_flows = 64;
    options.most_inspections = 40;
    options.most_devices = 16;
    ends film = connect("www.films.example");
    for (int i = 0; i < 9; i++)
        connect("www.friends.example");
    for (int i = 0; i < 20000; i++) {
        std::string victim = "203.0." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1);
        show(tcp_packet({"192.168.1.66", victim, 1000, 443}, 1, tcp_syn, {}), 66);
        show(tcp_packet({"192.168.1.66", victim, 1000, 443}, 2, tcp_ack, "\x16\x03\x01\x40"), 66);
        // And under addresses that are not its own.
        show(tcp_packet({"192.168.7." + std::to_string(i % 250), victim, 1000, 443}, 1, tcp_syn, {}), 66);
    }
    wait(0.001);
    receive(film, 400000);
    receive(connect("www.films.example", "192.168.1.30"), 400000); // a third one comes in, too
    finish();
    EXPECT_EQ(told(), "3001:m");
    EXPECT_EQ(told("192.168.1.30"), "3001:m");
    EXPECT_GT(classify->counters()[feed_flow_table_full], 19000u);
}

TEST_F(feed_household, takes_bytes_from_connection_tracking_where_packets_are_few)
{
    options.count_packets = false;
    options.packets_shown = 12;
    ends film = connect("www.films.example");
    flow_key key = key_of(film);
    for (uint64_t i = 1; i <= 3; i++) {
        wait(9);
        classify->count_flow(key, {1000 * i, 200000 * i, 100 * i, false}, now);
        wait(1);
    }
    // A connection older than the feed, in a network that tells: what it moved before counts for nothing.
    read_address("198.51.100.3", &key.server);
    classify->count_flow(key, {5000, 9000000, 7000, false}, now);
    classify->count_flow(key, {6000, 9001000, 7002, false}, now);
    finish();
    EXPECT_EQ(told(), "3001:m 3001:m");
    EXPECT_EQ(hits[0].up_bytes + hits[1].up_bytes, 2000u);
    EXPECT_EQ(hits[0].down_bytes + hits[1].down_bytes, 400000u);
}

TEST_F(feed_household, decides_once_no_more_packets_are_to_be_shown)
{
    options.count_packets = false;
    options.packets_shown = 12;
    flow_key key = key_of(connect("", phone, "198.51.100.7"));
    const struct {
        double after;
        uint64_t packets;
        uint32_t told;
    } counts[] = {{5, 11, 0}, {0.5, 12, 0}, {9.5, 14, 1}}; // the last ones may be on their way for half a second
    for (const auto &one : counts) {
        wait(one.after);
        classify->count_flow(key, {1000, 30000, one.packets, false}, now); // nothing moves any more
        EXPECT_EQ(classify->counters()[feed_flows_by_address], one.told) << one.packets;
    }
    EXPECT_EQ(classify->counters()[feed_kbytes_told], 30u) << "what it moved before counts at once";
}

TEST_F(feed_household, takes_no_calls_from_outside_for_use)
{
    options.count_packets = false;
    options.packets_shown = 12;
    for (bool began_outside : {true, false}) {
        ends call{phone, "198.51.100.7", port++, 5060}; // of a network that tells
        for (const ends &way : {back(call), call})
            show(udp_packet(way, "ring"));
        flow_key key = key_of(call);
        key.protocol = protocol_udp;
        wait(5);
        classify->count_flow(key, {50000, 50000, 100, began_outside}, now);
        wait(10);
        classify->advance(now);
        EXPECT_EQ(told(), began_outside ? "" : "2001:m");
    }
}

TEST_F(feed_household, forgets_a_connection_that_is_tracked_no_more)
{
    options.count_packets = false;
    ends film = connect("www.films.example");
    flow_key key = key_of(film);
    for (int i = 0; i < 400; i++) { // a long pause: it moves nothing, and is tracked all the same
        wait(10);
        if (i == 200) { // the clock is set
            wait(3e8);
            classify->advance(now);
        }
        classify->count_flow(key, {500, 900, 8, false}, now);
        classify->end_count(now);
        ASSERT_TRUE(flows.empty()) << i;
    }
    wait(10);
    classify->end_count(now);
    EXPECT_TRUE(classify->knows(key));
    wait(10);
    classify->end_count(now);
    EXPECT_FALSE(classify->knows(key));
}

TEST_F(feed_household, takes_ndpis_word_by_name_for_traffic_with_outside)
{
    if (!dpi_engine(true).is_working())
        GTEST_SKIP() << dpi_engine::version();
    const bytes discovery = "SpotUdp0" + bytes(36, '\1');
    const ends outside{phone, server, 57621, 57621};
    show(udp_packet({phone, "192.168.1.255", 57621, 57621}, discovery));
    show(udp_packet(outside, discovery)); // nobody answers so far
    EXPECT_EQ(classify->counters()[feed_flows_by_dpi], 1u);
    wait(10);
    for (int i = 0; i < 30; i++)
        show(udp_packet(back(outside), bytes(1000, 'a')));
    close(connect("www.pandora.com")); // of nDPI's own list of names
    // A question for an app's name is no use of it, whatever nDPI calls it.
    show(udp_packet({phone, "8.8.8.8", 5000, 53}, dns_message("www.spotify.com", {})));
    finish();
    EXPECT_EQ(told(), "2001:m");
    EXPECT_TRUE(hits[0].is_call);
    EXPECT_EQ(hits[0].by, evidence::dpi);
    EXPECT_EQ(classify->counters()[feed_flows_by_dpi], 2u);
    EXPECT_EQ(classify->counters()[feed_flows_unknown], 1u);
}

TEST_F(feed_household, goes_on_when_clocks_jump)
{
    ends film = connect("www.films.example");
    receive(film, 400000);
    wait(3e8); // years ahead
    receive(film, 1000);
    now = evening; // and back
    receive(film, 400000);
    wait(11);
    receive(film, 1);
    finish();
    EXPECT_EQ(told(), "3001:m 3001:m 3001:m");
}
