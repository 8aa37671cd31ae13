// The household's devices: met as neighbours, told to the daemon, listed and changed by requests.
#include "tests/system/platform/place.h"

#include "common/guards.h"
#include "common/mac_text.h"
#include "igd/igd_lib.h"
#include "igd/igd_netlink.h"
#include "platform/linux/client/request_client.h"
#include "platform/linux/client/request_protocol.h"
#include "simulator/world/private_network.h"

#include <algorithm>
#include <arpa/inet.h>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <netlink/netlink.h>
#include <poll.h>
#include <string.h>

using namespace std::literals;

namespace {

using steady = std::chrono::steady_clock;

std::string mac_text(const std::string &mac)
{
    char text[mac_text_size];
    write_mac_text(reinterpret_cast<const unsigned char *>(mac.data()), text);
    return text;
}

// A LAN br-lan with the library at work on it, and the daemon's ends of it.
class devices : public testing::Test {
protected:
    void SetUp() override
    {
        if (!own_network)
            GTEST_SKIP() << "no network namespace";
        ASSERT_TRUE(make_lan("192.168.7.1/24"));
        nl_connect(kernel.get(), NETLINK_ROUTE);
        server = nt_ipcserver_init2(socket_path.c_str(), refuse);
        ASSERT_EQ(__nlk_msg_init(&channel, 176, 0, 0), 0);
        nos_lan_cfg lan;
        ASSERT_EQ(get_lan_config(&lan), 0);
    }

    void tell_kernel(int type, const std::string &address, const std::string &mac, uint16_t state = 0)
    {
        ::tell_kernel(kernel.get(), type, address, mac, state);
    }

    json_tree ask(u32 id, const std::string &text = "")
    {
        client_answer answer = {};
        client_request request = {};
        request.id = id;
        request.text = text.c_str();
        bool done =
            serve_during(server, [&] { return call_daemon(socket_path.c_str(), 5000, request, &answer) == request_done; });
        return json_tree(!done ? nullptr : answer.text ? cJSON_Parse(answer.text.get()) : cJSON_CreateTrue());
    }

    bool change(const std::string &text) { return ask(request_change_device, text) != nullptr; }

    // What is listed of a device, as text without its moments; "" while it is not listed.
    std::string listed(const std::string &mac)
    {
        json_tree answer = ask(request_list_devices);
        cJSON *device = nullptr;
        cJSON_ArrayForEach(device, cJSON_GetObjectItem(answer.get(), "devices")) {
            if (mac_text(mac) != cJSON_GetStringValue(cJSON_GetObjectItem(device, "mac")))
                continue;
            for (const char *key : {"mac", "on_line_since", "last_seen", "away"})
                cJSON_DeleteItemFromObject(device, key);
            heap_text text(cJSON_PrintUnformatted(device));
            return text.get();
        }
        return "";
    }

    // The next host message within some seconds: "+ MAC ADDRESS", or "- ...".
    std::string told()
    {
        pollfd readable = {channel.sock_fd, POLLIN, 0};
        nlk_host_msg message = {};
        if (poll(&readable, 1, 10000) != 1 || nlk_msg_recv(&channel, &message, sizeof message) != sizeof message)
            return "nothing";
        std::string mac(reinterpret_cast<char *>(message.mac), 6);
        return (message.comm.action == IGD_ACTION_ADD ? "+ " : "- ") + mac_text(mac) + " " + inet_ntoa(message.addr);
    }

    std::unique_ptr<nl_sock, released_by<nl_socket_free>> kernel{nl_socket_alloc()};
    igd_netlink_handler channel = {};
    int server = -1;
};

const std::string tablet("\0\x16\x3E\0\x5E\x12", 6), phone("\2\0\0\0\0\6", 6);

TEST_F(devices, are_met_told_and_changed_by_the_persons_word)
{
    const std::string before = R"({"note":"mine","devices":[{"colour":"red","mac":"00:16:3e:00:5e:12","group":3}],"home":7})";
    write_file("state/roster.json", before);
    tell_kernel(RTM_NEWNEIGH, "192.168.7.5", tablet, NUD_REACHABLE);
    tell_kernel(RTM_NEWNEIGH, "192.168.7.6", phone, NUD_PERMANENT);
    EXPECT_TRUE(comes_true([&] { return listed(phone) != ""; }));
    EXPECT_EQ(listed(tablet),
              R"({"name":"device 5E-12","name_from":"none","address":"192.168.7.5","role":0,"role_from":"default",)"
              R"("on_line":true,"private_mac":false})");
    EXPECT_EQ(listed(phone),
              R"({"name":"device 00-06","name_from":"none","address":"192.168.7.6","role":0,"role_from":"default",)"
              R"("on_line":true,"private_mac":true})");
    const std::string mac = R"({"mac":")" + mac_text(tablet) + R"(",)";
    for (const std::string &refused :
         {std::string(), std::string("{}"), mac + R"("colour":"blue"})", mac + R"("role":3})", mac + R"("role":1.5})",
          mac + R"("role":"1"})", mac + R"("role":-1})", mac + R"("name":7})", mac + R"("name":"two\nlines"})",
          mac + "\"name\":\"\xC3(\"}", mac + "\"name\":\"\xED\xA0\x80\"}", mac + R"("name":"\u202Etxet"})",
          mac + R"("name":"123456789012345678901234567890123"})", std::string(R"({"mac":"01-00-5E-00-00-01","role":1})"),
          std::string(R"({"mac":"00-16","role":1})"), mac + R"("role":1)"})
        EXPECT_FALSE(change(refused)) << refused;
    EXPECT_EQ(read_file("state/roster.json"), before);

    EXPECT_TRUE(change(mac + R"("name":"平板 \"电脑\"","role":1})"));
    EXPECT_EQ(told(), "+ 00-16-3E-00-5E-12 192.168.7.5") << "and nothing of those of role 0 before";
    EXPECT_EQ(listed(tablet), R"({"name":"平板 \"电脑\"","name_from":"person","address":"192.168.7.5","role":1,)"
                              R"("role_from":"person","on_line":true,"private_mac":false})");
    json_tree roster(cJSON_Parse(read_file("state/roster.json").c_str()));
    heap_text text(cJSON_PrintUnformatted(roster.get()));
    EXPECT_STREQ(text.get(), R"({"note":"mine","devices":[{"colour":"red","mac":"00:16:3e:00:5e:12","group":3,"role":1,)"
                             R"("name":"平板 \"电脑\""}],"home":7})");
    // Another address is followed without a word, another role is told, by hand as by request.
    tell_kernel(RTM_NEWNEIGH, "192.168.7.9", tablet, NUD_REACHABLE);
    EXPECT_TRUE(comes_true([&] { return listed(tablet).find("192.168.7.9") != std::string::npos; }));
    EXPECT_TRUE(change(mac + R"("name":"","role":2})"));
    EXPECT_EQ(told(), "+ 00-16-3E-00-5E-12 192.168.7.9");
    EXPECT_NE(listed(tablet).find("device 5E-12"), std::string::npos);
    write_file("state/roster.json",
               R"({"devices":[{"mac":"00-16-3E-00-5E-12","role":2},{"mac":"02-00-00-00-00-06","role":1}]})");
    EXPECT_EQ(told(), "+ 02-00-00-00-00-06 192.168.7.6");

    // A roster that is broken or gone is not overwritten.
    for (const char *broken : {"{", ""}) {
        write_file("state/roster.json", broken);
        if (!*broken)
            remove((home + "state/roster.json").c_str());
        EXPECT_FALSE(change(mac + R"("role":1})"));
        EXPECT_EQ(read_file("state/roster.json"), broken);
    }
    EXPECT_NE(listed(tablet).find("\"role\":2"), std::string::npos);
}

TEST_F(devices, are_met_by_ipv6_too)
{
    write_file("state/roster.json", R"({"devices":[{"mac":"00-16-3E-00-5E-12","role":1}]})");
    tell_kernel(RTM_NEWNEIGH, "fe80::12", tablet, NUD_REACHABLE);
    EXPECT_EQ(told(), "+ 00-16-3E-00-5E-12 0.0.0.0");
    tell_kernel(RTM_NEWNEIGH, "fd00::12", tablet, NUD_PERMANENT); // certain of a newer one
    EXPECT_TRUE(comes_true([&] { return listed(tablet).find(R"("address":"fd00::12")") != std::string::npos; }));
    tell_kernel(RTM_NEWNEIGH, "192.168.7.5", tablet, NUD_REACHABLE);
    EXPECT_TRUE(comes_true([&] { return listed(tablet).find(R"("address":"192.168.7.5")") != std::string::npos; }));
    tell_kernel(RTM_DELNEIGH, "fe80::12", "");
    EXPECT_NE(listed(tablet).find("\"on_line\":true"), std::string::npos);
}

TEST_F(devices, more_than_a_packet_holds_are_listed_in_parts)
{
    std::string roster = R"({"devices":[)";
    for (u32 i = 0; i < 500; ++i)
        roster += (i ? "," : "") + R"({"name":"a name of thirty-two characters.","mac":")"s +
                  mac_text(std::string("\2\1\0\0", 4) + static_cast<char>(i >> 8) + static_cast<char>(i)) + "\"}";
    write_file("state/roster.json", roster + "]}");
    std::string last, input;
    int count = 0, parts = 0;
    for (bool more = true; more; ++parts) {
        json_tree answer = ask(request_list_devices, input);
        const cJSON *device = nullptr;
        cJSON_ArrayForEach(device, cJSON_GetObjectItem(answer.get(), "devices")) {
            std::string mac = cJSON_GetStringValue(cJSON_GetObjectItem(device, "mac"));
            EXPECT_LT(last, mac);
            last = mac;
            ++count;
        }
        input = R"({"after":")" + last + "\"}";
        more = parts < 10 && cJSON_IsTrue(cJSON_GetObjectItem(answer.get(), "more"));
    }
    EXPECT_EQ(count, 500);
    EXPECT_GT(parts, 1);
    EXPECT_FALSE(ask(request_list_devices, R"({"after":"nobody"})"));
}

long resident_kilobytes()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (long size = 0; word == "VmRSS:" && status >> size)
            return size;
    return 0;
}

// 250 at a time, each time others: phones with made-up MACs at a station, or somebody with a grudge.
TEST_F(devices, that_only_pass_by_cost_neither_memory_nor_time)
{
    write_file("state/roster.json", R"({"devices":[{"mac":"00-16-3E-00-5E-12","role":1}]})");
    tell_kernel(RTM_NEWNEIGH, "192.168.7.5", tablet, NUD_REACHABLE);
    EXPECT_EQ(told(), "+ 00-16-3E-00-5E-12 192.168.7.5");
    std::vector<double> milliseconds;
    u32 stranger = 0;
    auto crowd = [&] {
        for (u32 i = 0; i < 250; ++i, ++stranger) {
            std::string mac = std::string("\2\7\0", 3);
            for (int shift : {16, 8, 0})
                mac += static_cast<char>(stranger >> shift);
            tell_kernel(RTM_NEWNEIGH, inet_ntoa({htonl(0xC0A80800 + i)}), mac, i % 2 ? NUD_REACHABLE : NUD_STALE);
            // What the daemon asks for a hit, and for its device.
            auto begin = steady::now();
            unsigned char found[6];
            EXPECT_EQ(get_mac_by_ip(inet_addr("192.168.7.5"), found), 0);
            char *answer = nullptr;
            EXPECT_EQ(call_cgi("/app/devices/webs/getdeviceslist.cgi", "mac=00-16-3E-00-5E-12", &answer), 1);
            heap_text owned(answer);
            milliseconds.push_back(std::chrono::duration<double, std::milli>(steady::now() - begin).count());
            EXPECT_TRUE(strstr(answer, "\"role\":\"1\"")) << answer;
        }
        for (u32 i = 0; i < 250; ++i)
            tell_kernel(RTM_DELNEIGH, inet_ntoa({htonl(0xC0A80800 + i)}), "");
    };
    EXPECT_TRUE(comes_true([&] {
        crowd();
        return counter_of("devices_forgotten") > 250;
    }));
    long before = resident_kilobytes();
    for (int i = 0; i < 40; ++i)
        crowd();
    long after = resident_kilobytes();
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // whose own memory grows
    EXPECT_LT(after - before, 512) << "kilobytes beside " << before;
#endif
    std::sort(milliseconds.begin(), milliseconds.end());
    EXPECT_LT(milliseconds[milliseconds.size() * 99 / 100], 20.0);
    printf("%zu look-ups: p50 %.4f ms, p99 %.4f ms, most %.3f ms; resident %ld, then %ld kB\n", milliseconds.size(),
           milliseconds[milliseconds.size() / 2], milliseconds[milliseconds.size() * 99 / 100], milliseconds.back(), before,
           after);
    EXPECT_NE(listed(tablet).find("\"role\":1"), std::string::npos) << "who has a role stays";
}

} // namespace
