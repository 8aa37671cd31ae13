// Router messages, sent as others send them.
#include "tests/system/platform/place.h"

#include "common/guards.h"
#include "igd/igd_lib.h"
#include "simulator/world/kernel_messages.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <string.h>
#include <sys/stat.h>

namespace {

TEST(router_messages, come_byte_for_byte_from_who_may_send)
{
    igd_netlink_handler channel;
    ASSERT_EQ(__nlk_msg_init(&channel, 176, 0, 0), 0);
    EXPECT_EQ(mode_of(home + "run/messages.sock"), 0660u);
    char buffer[sizeof(nlk_sys_msg)];
    pollfd readable = {channel.sock_fd, POLLIN, 0};
    EXPECT_EQ(nlk_msg_recv(&channel, buffer, sizeof buffer), -1);
    EXPECT_EQ(poll(&readable, 1, 0), 0);
    nlk_sys_msg event = app_message(0, application_word(1001), 5, "192.168.7.5", "02-00-00-00-00-05");
    auto send_event = [&] { return send_router_message(home + "run", &event, sizeof event) ? 0 : 1; };
    ASSERT_EQ(send_event() + send_event(), 0);
    for (int message : {1, 2}) {
        ASSERT_EQ(poll(&readable, 1, 5000), 1);
        EXPECT_EQ(nlk_msg_recv(&channel, buffer, sizeof buffer), static_cast<int>(sizeof event));
        EXPECT_EQ(memcmp(buffer, &event, sizeof event), 0) << message;
    }
    EXPECT_EQ(poll(&readable, 1, 0), 0) << "nothing is left";
    ASSERT_EQ(send_event(), 0);
    ASSERT_EQ(poll(&readable, 1, 5000), 1);
    EXPECT_EQ(nlk_msg_recv(&channel, buffer, 40), -1);
    EXPECT_TRUE(counts("router_truncated", 1));
    const std::string too_large(9000, 'x');
    send_router_message(home + "run", too_large.data(), too_large.size());
    EXPECT_TRUE(counts("router_truncated", 2));
    // Who is neither root nor of the group cannot even send.
    chmod(home.c_str(), 0755);
    EXPECT_NE(as_nobody({}, send_event), 0);
    EXPECT_EQ(nlk_msg_recv(&channel, buffer, sizeof buffer), -1);
}

TEST(router_messages, wait_in_a_bounded_queue_and_hold_up_no_sender)
{
    igd_netlink_handler channel;
    ASSERT_EQ(__nlk_msg_init(&channel, 176, 0, 0), 0);
    nlk_host_msg event = host_message(0, "192.168.7.5", "02-00-00-00-00-05");
    for (int i = 0; i < 1100; ++i) {
        event.comm.index = i;
        ASSERT_TRUE(send_router_message(home + "run", &event, sizeof event));
    }
    EXPECT_TRUE(counts("router_overruns", 76)) << "nobody takes them: the first 1,024 stay";
    for (int i = 0; i < 1024; ++i) {
        ASSERT_EQ(nlk_msg_recv(&channel, &event, sizeof event), static_cast<int>(sizeof event));
        ASSERT_EQ(event.comm.index, i);
    }
    EXPECT_EQ(nlk_msg_recv(&channel, &event, sizeof event), -1);
}

} // namespace
