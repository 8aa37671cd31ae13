// The daemon's loop on its real traffic socket, held up while messages come faster than anybody may send: what fits its receive
// buffer is tracked, what does not is counted.
#include "simulator/world/kernel_messages.h"
#include "simulator/world/private_network.h"
#include "tests/kit/waiting.h"

#include "appident/app_ident.h"
#include "appident/model/app_slots.h"
#include "appident/model/device_list.h"
#include "appident/router/traffic_socket.h"
#include "common/counters.h"
#include "common/guards.h"
#include "common/log.h"
#include "common/sec_plg_common.h"

#include <chrono>
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sched.h>
#include <string.h>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr u32 app = 1001, bytes_up = 3;
const device_entry phone{"phone", "02-00-5E-00-00-11", "192.168.77.11", 1, 3, true};
std::string why_not;

u32 counted(counter which)
{
    show_counters();
    counter_reading readings[counter_end] = {};
    u32 owner = 0;
    counter_page_read(counters_path, readings, counter_end, &owner);
    return readings[which].value;
}

struct nothing_lost : testing::Test {
    void SetUp() override
    {
        if (!why_not.empty())
            GTEST_SKIP() << "NOT TESTED HERE, real netlink: " << why_not;
        ASSERT_TRUE(sender >= 0);
        tracked = counted(counter_hits_tracked) + 1;
        send(start_mark);
        ASSERT_TRUE(comes_true([&] { return counted(counter_hits_tracked) == tracked; }));
        lost = counted(counter_traffic_lost);
    }
    // `type`: 0 for an accounting message's own.
    void send(u32 mark = 0, uint16_t type = 0) const
    {
        std::vector<unsigned char> message =
            accounting_message({application_word(app), mark | 7, 3, phone.ip, "203.0.113.9", bytes_up, 1});
        if (type != 0)
            memcpy(&message[offsetof(nlmsghdr, nlmsg_type)], &type, sizeof(type));
        ASSERT_TRUE(multicast(sender, group_update, message.data(), message.size()));
    }
    // The loop cannot go on while somebody else holds the lock.
    void send_while_held_up(u32 messages, milliseconds over) const
    {
        mutex_guard held(device_apps_mtx);
        const steady_clock::time_point began = steady_clock::now();
        for (u32 sent = 0; sent < messages; sent++) {
            if (sent % 100 == 0)
                std::this_thread::sleep_until(began + over * sent / messages);
            send();
        }
        std::this_thread::sleep_until(began + over);
    }
    static u64 bytes_of_the_app()
    {
        mutex_guard held(device_apps_mtx);
        device_record *dev = tracked_device(phone.mac.c_str());
        int none;
        return dev ? dev->apps[find_app_slot(dev, app, &none)].up_bytes : 0;
    }

    fd_guard socket{open_conntrack()};
    int sender = socket.get();
    u32 tracked = 0, lost = 0;
};

TEST_F(nothing_lost, a_second_without_the_loop)
{
    u64 before = bytes_of_the_app();
    send_while_held_up(10000, milliseconds(1000));
    EXPECT_TRUE(comes_true([&] { return counted(counter_hits_tracked) - tracked >= 10000; }));
    EXPECT_EQ(counted(counter_hits_tracked) - tracked, 10000u);
    EXPECT_EQ(bytes_of_the_app() - before, 10000u * bytes_up);
    EXPECT_EQ(counted(counter_traffic_lost), lost);
}

// More of them than the buffer holds, and they take nobody's place.
TEST_F(nothing_lost, what_is_no_accounting_message_does_not_reach_the_loop)
{
    u32 messages = counted(counter_traffic_messages);
    {
        mutex_guard held(device_apps_mtx);
        for (int type : {0x100, 0x101, 0x102, 0x10C, 0x0B01})
            for (int i = 0; i < 8000; i++)
                send(0, static_cast<uint16_t>(type));
        send(0, 0x20B); // another subsystem's, by its low byte as good as ours
        send();
    }
    EXPECT_TRUE(comes_true([&] { return counted(counter_hits_tracked) == tracked + 2; }));
    EXPECT_EQ(counted(counter_traffic_messages), messages + 2);
    EXPECT_EQ(counted(counter_traffic_lost), lost);
}

TEST_F(nothing_lost, a_full_buffer_is_counted_and_reception_goes_on)
{
    send_while_held_up(40000, milliseconds(0));
    auto accounted = [&] { return counted(counter_hits_tracked) - tracked + counted(counter_traffic_lost) - lost; };
    EXPECT_TRUE(comes_true([&] { return accounted() == 40000; })) << accounted();
    EXPECT_GT(counted(counter_traffic_lost), lost);
    u32 so_far = counted(counter_hits_tracked);
    send();
    EXPECT_TRUE(comes_true([&] { return counted(counter_hits_tracked) == so_far + 1; }));
}

// A network and files of our own, and the daemon's parts as its main starts them, but for the waiting.
std::string start_the_loop()
{
    if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS) != 0)
        return "a private network is not allowed here";
    if (!make_private_tmp({}) || !make_lan("192.168.77.1/24") || !settle_neighbours({phone}))
        return "the private network lacks something, see above";
    static igd_netlink_handler no_channel = {};
    no_channel.sock_fd = -1;
    counters_init();
    url_check_init();
    static int traffic = open_traffic_socket();
    if (traffic < 0 || plugin_common_init() != 0)
        return "the traffic socket does not open";
    link_device(allocate_device_record(phone.mac.c_str()));
    std::thread([] { serve_events(traffic, &no_channel, -1); }).detach();
    return "";
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests))
        why_not = start_the_loop();
    int result = RUN_ALL_TESTS();
    fflush(nullptr);
    _exit(result); // the loop never ends
}
