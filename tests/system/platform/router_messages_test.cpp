// Router messages, sent as others send them.
#include "tests/system/platform/place.h"

#include "common/guards.h"
#include "igd/igd_lib.h"
#include "platform/linux/message_channel.h"
#include "tests/kit/kernel_messages.h"

#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <string.h>

namespace {

TEST(router_messages, are_taken_byte_for_byte_from_root_only)
{
    if (!own_network)
        GTEST_SKIP() << "no network namespace";
    igd_netlink_handler channel;
    ASSERT_EQ(__nlk_msg_init(&channel, 176, 0, 0), 0);
    char buffer[sizeof(nlk_sys_msg)];
    EXPECT_EQ(nlk_msg_recv(&channel, buffer, sizeof buffer), -1);
    nlk_sys_msg event = app_message(0, application_word(1001), 5, "192.168.7.5", "02-00-00-00-00-05");
    auto send_event = [&] {
        fd_guard sender(open_netlink(NETLINK_USERSOCK));
        return multicast(sender.get(), message_channel_group, &event, sizeof event) ? 0 : 1;
    };
    ASSERT_EQ(send_event(), 0);
    ASSERT_EQ(nlk_msg_recv(&channel, buffer, sizeof buffer), static_cast<int>(sizeof event));
    EXPECT_EQ(memcmp(buffer, &event, sizeof event), 0);
    ASSERT_EQ(send_event(), 0);
    EXPECT_EQ(nlk_msg_recv(&channel, buffer, 40), -1);
    EXPECT_TRUE(counts("router_truncated", 1u));
    if (as_nobody({}, send_event) == 0) {
        EXPECT_EQ(nlk_msg_recv(&channel, buffer, sizeof buffer), -1);
        EXPECT_TRUE(counts("router_foreign", 1u));
    }
    close(channel.sock_fd);
}

} // namespace
