#include "platform/linux/host_messages.h"

#include "igd/igd_netlink.h"
#include "platform/linux/message_channel.h"
#include "platform/linux/platform_counters.h"

#include <string.h>
#include <sys/socket.h>

namespace {

int sender = -1;

bool tell(int action, const unsigned char *mac, u32 ip)
{
    u32 port = message_channel_port();
    if (port == 0)
        return false;
    if (sender < 0)
        sender = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_USERSOCK);
    nlk_host_msg message = {};
    message.comm.action = action;
    message.comm.gid = IGD_GID_HOST;
    message.addr.s_addr = ip;
    memcpy(message.mac, mac, sizeof(message.mac));
    sockaddr_nl to = {};
    to.nl_family = AF_NETLINK;
    to.nl_pid = port;
    bool sent = sendto(sender, &message, sizeof(message), MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&to), sizeof(to)) >= 0;
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
