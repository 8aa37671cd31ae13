// The router messaging channel on stock Linux: a multicast group of the kernel's user-to-user netlink protocol.
//
// Who has router messages to tell sends them, bytes of the record alone, to this group of NETLINK_USERSOCK (nl_groups =
// message_channel_mask, nl_pid 0), one message a datagram. No part of the kernel listens there, so sendto answers ECONNREFUSED
// after it has multicast: that is no failure. Anybody may send; only messages of root or of the daemon's own user are taken.
#ifndef PLATFORM_LINUX_MESSAGE_CHANNEL_H
#define PLATFORM_LINUX_MESSAGE_CHANNEL_H

#include "igd/igd_types.h"

constexpr u32 message_channel_group = 17;
constexpr u32 message_channel_mask = 1u << (message_channel_group - 1);

// The netlink port of the daemon's end in this process, 0 before it is open. A message to the port alone has a known end: it
// arrives, or sending fails.
u32 message_channel_port();

#endif
