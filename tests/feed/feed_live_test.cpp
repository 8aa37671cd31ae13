// What the feed says to the kernel and to the daemon, over real netlink in a network of its own.
#include "feed/conntrack_entry.h"
#include "feed/link_layer.h"
#include "feed/message_sender.h"
#include "feed/netlink_socket.h"
#include "feed/nflog_message.h"
#include "feed/packet_ring.h"
#include "feed/ring_block.h"
#include "feed/ruleset_look.h"
#include "tests/feed/spoken.h"

#include "common/accounting_format.h"
#include "common/accounting_message.h"
#include "common/guards.h"

#include <gtest/gtest.h>

#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_log.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netlink/msg.h>
#include <netpacket/packet.h>
#include <poll.h>
#include <sched.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int milliseconds_for_an_answer = 20000;
std::string why_not; // what this machine lacks for these tests

// A socket that hears the groups, a bit each.
int listener(uint32_t groups)
{
    int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_NETFILTER);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = groups;
    return bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0 ? fd : -1;
}

// The next message; empty when none comes.
std::vector<char> heard(int fd, int milliseconds)
{
    pollfd ready{fd, POLLIN, 0};
    std::vector<char> message;
    if (poll(&ready, 1, milliseconds) == 1) {
        message.resize(8192);
        ssize_t size = recv(fd, message.data(), message.size(), 0);
        message.resize(size > 0 ? static_cast<size_t>(size) : 0);
    }
    return message;
}

hit film()
{
    hit one{};
    read_address("192.168.77.20", &one.device);
    one.app = 3001;
    one.is_marked = true;
    one.up_bytes = 1500;
    one.down_bytes = 700000;
    one.by = evidence::hello;
    one.flow.device = one.device;
    read_address("203.0.113.5", &one.flow.server);
    one.flow.device_port = 40000;
    one.flow.server_port = 443;
    one.flow.protocol = 6;
    return one;
}

struct feed_sender : testing::Test {
    void SetUp() override
    {
        if (!why_not.empty())
            GTEST_SKIP() << "NOT TESTED HERE, messages over real netlink: " << why_not;
        ASSERT_TRUE(sender.open());
    }
    app_data decoded(const hit &one)
    {
        app_data out{};
        EXPECT_EQ(sender.send(one), send_outcome::sent);
        std::vector<char> message = heard(daemon.get(), milliseconds_for_an_answer);
        auto *header = reinterpret_cast<nlmsghdr *>(message.data());
        EXPECT_TRUE(message.size() > sizeof(*header) && header->nlmsg_len == message.size());
        if (!HasFailure()) {
            EXPECT_EQ(header->nlmsg_type, NFNL_SUBSYS_CTNETLINK << 8 | 11);
            EXPECT_EQ(header->nlmsg_flags, 0);
            EXPECT_EQ(process_app_acct_message(header, &out), 0);
        }
        return out;
    }

    message_sender sender;
    fd_guard daemon{listener(1u << 7)};
};

} // namespace

TEST_F(feed_sender, tells_the_daemon_what_it_found_and_nobody_else)
{
    fd_guard others{listener(0xFFFFFF7F)};
    app_data told = decoded(film());
    EXPECT_EQ(told.appid, 3001u << 15 | 1);
    EXPECT_EQ(told.ruleid, start_mark | 1u << 16 | 3001);
    EXPECT_STREQ(told.req_src_ip, "192.168.77.20");
    EXPECT_STREQ(told.req_dst_ip, "203.0.113.5");
    EXPECT_STREQ(told.rep_src_ip, "203.0.113.5");
    EXPECT_STREQ(told.rep_dst_ip, "192.168.77.20");
    EXPECT_EQ(told.req_bytes, 1500u);
    EXPECT_EQ(told.rep_bytes, 700000u);

    hit call = film();
    call.is_call = true;
    call.is_marked = false;
    call.by = evidence::dpi;
    call.down_bytes = 1ull << 33;
    read_address("2001:db8::5", &call.flow.server);
    told = decoded(call);
    EXPECT_EQ(word_behavior(told.appid), 1u);
    EXPECT_EQ(word_vendor(told.appid), our_vendor);
    EXPECT_EQ(told.ruleid, 3u << 16 | 3001);
    EXPECT_EQ(told.rep_bytes, UINT32_MAX);
    EXPECT_STREQ(told.req_src_ip, "192.168.77.20");
    EXPECT_STREQ(told.rep_src_ip, "0.0.0.0");
    EXPECT_TRUE(heard(others.get(), 0).empty());
}

TEST_F(feed_sender, keeps_to_itself_what_the_daemon_must_not_be_told)
{
    for (uint32_t app : {0u, 8u, 300u, 301u, 302u, 303u, 0x10000u}) {
        hit one = film();
        one.app = app;
        EXPECT_EQ(sender.send(one), send_outcome::not_told) << app;
    }
    hit v6 = film();
    read_address("2001:db8::20", &v6.device);
    EXPECT_EQ(sender.send(v6), send_outcome::not_told);
    EXPECT_TRUE(heard(daemon.get(), 0).empty());
}

namespace {

// Our packets that the ring shows, up to this one.
std::vector<bytes> shown(packet_ring *ring, const bytes &last)
{
    std::vector<bytes> found;
    for (int i = 0; i < 200 && (found.empty() || found.back() != last); i++) {
        ring->wait(100);
        for (byte_view all; (all = ring->next_block()).size > 0; ring->give_back()) {
            ring_block block(all);
            ring_frame frame;
            link_frame inside;
            while (block.next(&frame)) {
                EXPECT_TRUE(find_ip(ring->link_type(), frame.bytes, &inside)) << "what is no IP must not come";
                // Others are the kernel's own, which looks for routers.
                if (inside.has_mac && memcmp(inside.mac, "\2\0\0\0\0\7", sizeof(inside.mac)) == 0)
                    found.emplace_back(reinterpret_cast<const char *>(inside.ip.data), inside.ip.size);
            }
        }
    }
    return found;
}

} // namespace

TEST(feed_ring, shows_ip_with_and_without_tags_and_counts_what_found_no_room)
{
    if (!why_not.empty() ||
        system("ip link add ring0 type veth peer name ring1 && ip link set ring0 up && ip link set ring1 up"))
        GTEST_SKIP() << "NOT TESTED HERE, the packet ring: " << why_not;
    fd_guard sender{socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)};
    sockaddr_ll from{};
    from.sll_family = AF_PACKET;
    from.sll_ifindex = static_cast<int>(if_nametoindex("ring1"));
    auto send = [&](const bytes &frame) {
        const auto *to = reinterpret_cast<const sockaddr *>(&from);
        return sendto(sender.get(), frame.data(), frame.size(), 0, to, sizeof(from)) == static_cast<ssize_t>(frame.size());
    };
    packet_ring ring;
    ASSERT_TRUE(ring.open());
    EXPECT_FALSE(ring.attach("missing"));
    ASSERT_TRUE(ring.attach("ring0"));
    const bytes v4 = udp_packet({"192.168.77.20", "203.0.113.5", 1, 2}, bytes(50, 'a'));
    const bytes v6 = udp_packet({"2001:db8::1", "2001:db8::2", 1, 2}, bytes(50, 'b'));
    const bytes tag = number(0x8100, 2) + number(5, 2), outer_tag = number(0x88A8, 2) + number(6, 2);
    bytes arp = ethernet_frame(v4, 7);
    arp.replace(12, 2, number(0x0806, 2));
    // The kernel takes one tag off itself.
    for (const bytes &frame : {arp, ethernet_frame(v4, 7), ethernet_frame(v6, 7), ethernet_frame(v4, 7, tag),
                               ethernet_frame(v6, 7, outer_tag + tag), ethernet_frame(v4, 7, outer_tag + tag + tag)})
        ASSERT_TRUE(send(frame));
    const bytes end = udp_packet({"192.168.77.20", "203.0.113.5", 1, 2}, bytes(50, 'z'));
    ASSERT_TRUE(send(ethernet_frame(end, 7)));
    EXPECT_EQ(shown(&ring, end), (std::vector<bytes>{v4, v6, v4, v6, v4, end}));
    EXPECT_EQ(ring.take_lost(), 0u);

    const bytes large = udp_packet({"192.168.77.20", "203.0.113.5", 1, 2}, bytes(1400, 'c'));
    constexpr size_t sent = 8000; // more than the ring holds
    for (size_t i = 0; i < sent; i++)
        ASSERT_TRUE(send(ethernet_frame(large, 7)));
    size_t lost = ring.take_lost();
    EXPECT_TRUE(lost > 0 && lost < sent) << lost;
    EXPECT_LT(shown(&ring, large).size(), sent);
    ASSERT_TRUE(send(ethernet_frame(end, 7)));
    std::vector<bytes> later = shown(&ring, end);
    EXPECT_TRUE(!later.empty() && later.back() == end);
}

TEST(feed_netfilter, reads_what_the_kernel_logs)
{
    constexpr uint64_t now = 1700000005000000;
    const bytes ip = tcp_packet({"192.168.77.20", "203.0.113.5", 40000, 443}, 1, 2, bytes(100, 'd'));
    const bytes link = number(6, 2) + bytes(2, 0) + "\2abcde" + bytes(2, 0);
    const bytes payload = netlink_attribute(NFULA_PAYLOAD, ip.substr(0, 60));
    auto read = [&](const bytes &attributes, logged_packet *out) {
        static bytes kept;
        kept = netlink_message(NFNL_SUBSYS_ULOG << 8 | NFULNL_MSG_PACKET, attributes);
        const nlmsghdr *message = next_netlink_message(kept.data(), static_cast<int>(kept.size()), nullptr);
        return message && read_logged_packet(message, now, out);
    };
    logged_packet out;
    ASSERT_TRUE(read(netlink_attribute(NFULA_TIMESTAMP, number(1700000000, 8) + number(7, 8)) +
                         netlink_attribute(NFULA_HWADDR, link) + payload + netlink_attribute(NFULA_SEQ, number(9, 4)),
                     &out));
    EXPECT_EQ(out.one.time_us, 1700000000000007u);
    EXPECT_EQ(out.one.captured, 60u);
    EXPECT_EQ(out.one.length, ip.size());
    EXPECT_TRUE(out.one.has_mac && memcmp(out.one.mac, "\2abcde", 6) == 0);
    EXPECT_TRUE(out.has_sequence && out.sequence == 9);

    // A time far from now is not taken, nor a link address of another length; without contents there is no packet.
    ASSERT_TRUE(read(netlink_attribute(NFULA_TIMESTAMP, number(~0ull, 8) + number(7, 8)) +
                         netlink_attribute(NFULA_HWADDR, number(8, 2) + bytes(10, 1)) + payload,
                     &out));
    EXPECT_EQ(out.one.time_us, now);
    EXPECT_FALSE(out.one.has_mac || out.has_sequence);
    EXPECT_FALSE(read(netlink_attribute(NFULA_PAYLOAD, ""), &out));
    EXPECT_FALSE(read(netlink_attribute(NFULA_HWADDR, link), &out));
    EXPECT_FALSE(read(netlink_attribute(NFULA_SEQ, "12") + payload, &out));
}

TEST(feed_netfilter, reads_connections_as_they_are_forwarded)
{
    auto read = [](const bytes &message, conntrack_entry *out) {
        const nlmsghdr *header = next_netlink_message(message.data(), static_cast<int>(message.size()), nullptr);
        return header && read_conntrack_entry(header, out);
    };
    conntrack_entry out;
    // The server sees the router's address.
    ASSERT_TRUE(read(conntrack_message({"192.168.77.20", "203.0.113.5", 40000, 443}, 10, 1ull << 40, "203.0.113.1"), &out));
    EXPECT_EQ(address_text(out.client.address), "192.168.77.20");
    EXPECT_EQ(address_text(out.server.address), "203.0.113.5");
    EXPECT_EQ(out.client.port, 40000);
    EXPECT_EQ(out.server.port, 443);
    EXPECT_EQ(out.client_bytes, 10u);
    EXPECT_EQ(out.packets, 2u); // one each way
    EXPECT_EQ(out.server_bytes, 1ull << 40);
    ASSERT_TRUE(read(conntrack_message({"2001:db8::1", "2001:db8::2", 1, 2}, 3, 4), &out));
    EXPECT_EQ(address_text(out.client.address), "2001:db8::1");
    // Cut short behind the tuples, it has no counters.
    bytes cut = conntrack_message({"192.168.77.20", "203.0.113.5", 40000, 443}, 10, 20);
    for (size_t size = cut.size() - 4; size > 0; size -= 4) {
        bytes shorter = cut.substr(0, size);
        uint32_t length = static_cast<uint32_t>(size);
        memcpy(shorter.data(), &length, std::min(sizeof(length), size));
        EXPECT_FALSE(read(shorter, &out)) << size;
    }
}

// `ct packets` against a number, as nft puts it, and what the rule does then.
bytes rule(const std::string &chain, int compare, uint64_t packets, const std::string &then)
{
    auto part = [](const std::string &name, const bytes &data) {
        return netlink_attribute(NFTA_LIST_ELEM,
                                 netlink_attribute(NFTA_EXPR_NAME, name) + netlink_attribute(NFTA_EXPR_DATA, data));
    };
    auto value = [](int type, uint64_t of, int size) { return netlink_attribute(type, number(of, size)); };
    bytes all = part("ct", value(NFTA_CT_KEY, NFT_CT_PKTS, 4) + value(NFTA_CT_DREG, 1, 4)) + part("byteorder", "") +
                part("cmp", value(NFTA_CMP_SREG, 1, 4) + value(NFTA_CMP_OP, static_cast<uint64_t>(compare), 4) +
                                netlink_attribute(NFTA_CMP_DATA, value(NFTA_DATA_VALUE, packets, 8)));
    return netlink_message(
        NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_NEWRULE,
        netlink_attribute(NFTA_RULE_TABLE, "fw") + netlink_attribute(NFTA_RULE_CHAIN, chain) +
            netlink_attribute(NFTA_RULE_EXPRESSIONS,
                              (compare < 0 ? bytes() : all) + part(then, netlink_attribute(NFTA_FLOW_TABLE_NAME, "ft"))));
}

bytes flow_table(const std::string &name, uint64_t flags)
{
    return netlink_message(NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_NEWFLOWTABLE,
                           netlink_attribute(NFTA_FLOWTABLE_TABLE, "fw") + netlink_attribute(NFTA_FLOWTABLE_NAME, name) +
                               netlink_attribute(NFTA_FLOWTABLE_FLAGS, number(flags, 4)));
}

TEST(feed_netfilter, finds_rules_that_hide_connections)
{
    const struct {
        std::vector<bytes> rules;
        uint32_t unguarded;
    } cases[] = {
        {{rule("forward", -1, 0, "flow_offload"), rule("forward", -1, 0, "counter")}, 1},
        {{rule("forward", NFT_CMP_GT, 12, "flow_offload"), rule("forward", NFT_CMP_GTE, 13, "flow_offload")}, 0},
        {{rule("forward", NFT_CMP_GT, 11, "flow_offload"), rule("forward", NFT_CMP_LT, 100, "flow_offload")}, 2},
        {{rule("forward", NFT_CMP_LT, 13, "immediate"), rule("forward", -1, 0, "flow_offload")}, 0},
        {{rule("other", NFT_CMP_LT, 13, "immediate"), rule("forward", -1, 0, "flow_offload")}, 1},
        {{rule("forward", NFT_CMP_LT, 12, "immediate"), rule("forward", -1, 0, "flow_offload")}, 1},
        {{flow_table("ft", NFT_FLOWTABLE_HW_OFFLOAD), rule("forward", NFT_CMP_GT, 12, "flow_offload")}, 1},
        {{flow_table("ft", NFT_FLOWTABLE_COUNTER), rule("forward", NFT_CMP_GT, 12, "flow_offload")}, 0},
        {{flow_table("unused", 0), rule("forward", NFT_CMP_GT, 12, "flow_offload")}, 0},
    };
    for (const auto &one : cases) {
        ruleset_look seen;
        for (const bytes &bytes_of_one : one.rules) {
            const auto *message = next_netlink_message(bytes_of_one.data(), static_cast<int>(bytes_of_one.size()), nullptr);
            take_flow_table(message, &seen);
            take_rule(message, &seen);
        }
        EXPECT_EQ(seen.offload_unguarded, one.unguarded) << &one - cases;
        EXPECT_FALSE(seen.has_own_rules);
    }
}

// What the kernel says about rules that nft loads.
TEST(feed_netfilter, sees_the_rules_of_the_kernel)
{
    if (!why_not.empty() || system("command -v nft >/dev/null") != 0)
        GTEST_SKIP() << "NOT TESTED HERE, nft rules: no network of our own, or no nft";
    netlink_socket socket;
    ruleset_look seen;
    ASSERT_TRUE(socket.open(NETLINK_NETFILTER, milliseconds_for_an_answer / 1000));
    ASSERT_TRUE(look_at_rules(&socket, &seen));
    EXPECT_FALSE(seen.has_own_rules);
    ASSERT_EQ(system("nft 'table inet appident_feed { chain forward { ct packets 1-12 accept; }; }'"), 0);
    ASSERT_TRUE(look_at_rules(&socket, &seen));
    EXPECT_TRUE(seen.has_own_rules);
    EXPECT_EQ(seen.guarded_chain, "1 appident_feed forward");
    auto load = [](const char *flow_rule, const std::string &counter) {
        return system(("nft 'flush ruleset; table inet fw { flowtable ft { hook ingress priority 0; devices = { lo }; " +
                       counter + " }; chain f { type filter hook forward priority 0; " + flow_rule + "; }; }' 2>/dev/null")
                          .c_str()) == 0;
    };
    if (!load("ct packets > 12 flow add @ft", "counter;"))
        GTEST_SKIP() << "NOT TESTED HERE, flow tables: this kernel has none";
    ASSERT_TRUE(look_at_rules(&socket, &seen));
    EXPECT_EQ(seen.offload_unguarded, 0u);
    EXPECT_FALSE(seen.has_own_rules);
    for (const auto &[flow_rule, counter] :
         {std::pair("meta l4proto { tcp, udp } flow add @ft", "counter;"), std::pair("ct packets > 12 flow add @ft", "")}) {
        ASSERT_TRUE(load(flow_rule, counter));
        ASSERT_TRUE(look_at_rules(&socket, &seen));
        EXPECT_EQ(seen.offload_unguarded, 1u) << flow_rule;
    }
}

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests))
        if ((unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) || system("ip link set lo up") != 0)
            why_not = "a private network is not allowed here";
    return RUN_ALL_TESTS();
}
