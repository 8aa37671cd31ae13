#include "platform/linux/host_messages.h"

#include "igd/igd_netlink.h"
#include "platform/linux/message_channel.h"
#include "platform/linux/platform_counters.h"

#include <string.h>

namespace {

bool tell(int action, const unsigned char *mac, u32 ip)
{
    if (!router_channel_is_open())
        return false;
    nlk_host_msg message = {};
    message.comm.action = action;
    message.comm.gid = IGD_GID_HOST;
    message.addr.s_addr = ip;
    memcpy(message.mac, mac, sizeof(message.mac));
    bool sent = queue_router_message(&message, sizeof(message));
    count_platform(sent ? platform_host_messages : platform_host_messages_failed);
    return sent;
}

} // namespace

bool tell_on_line(const unsigned char *mac, u32 ip)
{
    return tell(IGD_ACTION_ADD, mac, ip);
}

bool tell_off_line(const unsigned char *mac, u32 ip)
{
    return tell(IGD_ACTION_DEL, mac, ip);
}
