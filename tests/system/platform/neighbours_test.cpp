// MACs by address, as the kernel's neighbour table tells them.
#include "tests/system/platform/place.h"

#include "common/guards.h"
#include "igd/igd_lib.h"
#include "platform/linux/neighbour_table.h"
#include "simulator/world/private_network.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <gtest/gtest.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <random>
#include <string.h>
#include <utility>

using namespace std::literals;

namespace {

std::string mac_at(const std::string &ip)
{
    unsigned char mac[6] = {};
    return get_mac_by_ip(inet_addr(ip.c_str()), mac) == 0 ? std::string(reinterpret_cast<char *>(mac), 6) : "";
}

TEST(neighbours, follow_the_kernel_without_asking_it)
{
    if (!own_network)
        GTEST_SKIP() << "NOT TESTED HERE: no right to set up a network namespace";
    ASSERT_TRUE(make_lan("192.168.7.1/24"));
    nl_sock *kernel = nl_socket_alloc();
    nl_connect(kernel, NETLINK_ROUTE);
    for (const char *type : {"bridge", "dummy", "ifb"}) { // whichever this kernel has
        rtnl_link *link = rtnl_link_alloc();
        rtnl_link_set_name(link, "elsewhere");
        rtnl_link_set_type(link, type);
        rtnl_link_set_flags(link, IFF_UP);
        rtnl_link_add(kernel, link, NLM_F_CREATE | NLM_F_EXCL);
        rtnl_link_put(link);
    }
    auto tell_kernel = [&](int type, const char *ip, const std::string &mac, uint16_t state, const char *where = "br-lan") {
        ::tell_kernel(kernel, type, ip, mac, state, where);
    };
    const std::string tablet = "\2\0\0\0\0\5"s, phone = "\2\0\0\0\0\6"s, zero(6, '\0');
    tell_kernel(RTM_NEWNEIGH, "192.168.7.5", tablet, NUD_PERMANENT);
    nos_lan_cfg lan = {};
    ASSERT_EQ(get_lan_config(&lan), 0);
    EXPECT_EQ(lan.ip.s_addr, inet_addr("192.168.7.1"));
    EXPECT_EQ(lan.mask.s_addr, inet_addr("255.255.255.0"));
    EXPECT_NE(memcmp(lan.mac, zero.data(), 6), 0);
    EXPECT_EQ(mac_at("192.168.7.5"), tablet) << "known before we started";
    // Refused by the kernel's word, at first asked for, then known to be unknown.
    tell_kernel(RTM_NEWNEIGH, "192.168.7.6", zero, NUD_PERMANENT);
    tell_kernel(RTM_NEWNEIGH, "192.168.7.7", phone, NUD_FAILED);
    for (const char *ip : {"192.168.7.6", "192.168.7.7", "192.168.7.8", "0.0.0.0"})
        EXPECT_EQ(mac_at(ip), "") << ip;
    // From here on notifications alone must do.
    EXPECT_TRUE(comes_true([] { return mac_at("192.168.7.5") != ""; }));
    u32 asked = 0;
    EXPECT_TRUE(comes_true([&, before = 0u]() mutable { // shown in full: two looks with a copy between them agree
        before = std::exchange(asked, counter_of("neighbours_asked"));
        std::this_thread::sleep_for(300ms);
        return asked > 0 && asked == before;
    }));
    tell_kernel(RTM_NEWNEIGH, "192.168.7.8", phone, NUD_REACHABLE);
    tell_kernel(RTM_NEWNEIGH, "192.168.7.5", phone, NUD_PERMANENT);
    for (const char *ip : {"192.168.7.8", "192.168.7.5"}) // a stranger who became known, another MAC
        EXPECT_TRUE(comes_true([&] { return mac_at(ip) == phone; })) << ip;
    tell_kernel(RTM_DELNEIGH, "192.168.7.8", "", 0);
    tell_kernel(RTM_NEWNEIGH, "192.168.7.9", tablet, NUD_PERMANENT, "elsewhere");
    tell_kernel(RTM_NEWNEIGH, "192.168.7.10", tablet, NUD_PERMANENT);
    EXPECT_TRUE(comes_true([&] { return mac_at("192.168.7.10") == tablet; }));
    // The last one may have been asked for; the notification of the one that is gone may still be on its way.
    EXPECT_TRUE(comes_true([&] { return mac_at("192.168.7.8") + mac_at("192.168.7.9") == ""; })) << "gone, not on the LAN";
    // Where the notification is late, each change of an address may cost a question.
    EXPECT_LE(counter_of("neighbours_asked"), asked + 5);
    // A flood of strangers asks no more than so many questions.
    for (u32 i = 0; i < 5000; ++i)
        mac_at(inet_ntoa({htonl(0x0A000001 + i)}));
    EXPECT_TRUE(comes_true([] { return counter_of("neighbours_not_asked") >= 4000; }));
    nl_socket_free(kernel);
}

TEST(neighbours, table_is_whole_while_it_is_read_and_rewritten)
{
    std::minstd_rand draw;
    std::vector<u32> addresses(neighbour_most); // scattered, so that some share a home
    std::generate(addresses.begin(), addresses.end(), [&] { return static_cast<u32>(draw() * 2 + draw() % 2); });
    auto store = [&](u32 ip, u32 round) {
        unsigned char mark = static_cast<unsigned char>(draw()), mac[6] = {mark, static_cast<unsigned char>(ip), 1, 2, 3, mark};
        return neighbour_store(ip, mac, round);
    };
    auto found = [](u32 ip) {
        unsigned char mac[6] = {};
        bool known = neighbour_find(ip, mac);
        return !known ? "none" : mac[0] == mac[5] && mac[1] == (ip & 0xFF) ? "whole" : "torn";
    };
    std::atomic<bool> stop{false};
    int torn = 0;
    std::thread reader([&] {
        for (size_t i = 0; !stop; ++i)
            torn += *found(addresses[i % 8]) == 't';
    });
    for (int step = 0; step < 200000; ++step) {
        u32 ip = addresses[draw() % (step % 2 ? 8 : addresses.size())];
        mutex_guard held(neighbour_writers);
        step % 16 == 0 ? neighbour_forget(ip) : static_cast<void>(store(ip, 0));
    }
    stop = true;
    reader.join();
    EXPECT_EQ(torn, 0);
    for (size_t i = 0; i < addresses.size(); ++i)
        EXPECT_TRUE(store(addresses[i], i % 2));
    EXPECT_FALSE(store(1, 1)) << "full";
    neighbour_sweep(1); // whoever is not of that round goes
    for (size_t i = 0; i < addresses.size(); ++i)
        EXPECT_STREQ(found(addresses[i]), i % 2 == 1 ? "whole" : "none") << i;
}

} // namespace
