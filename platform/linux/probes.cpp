#include "platform/linux/probes.h"

#include "platform/linux/lan_neighbour.h"
#include "platform/linux/platform_counters.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace {

// A neighbour entry that is to be used: the kernel behaves as if it had something to send there.
struct use_message {
    nlmsghdr header;
    ndmsg about;
    rtattr attribute;
    u32 ip;
};
static_assert(sizeof(use_message) == 36, "a request of the routing socket");

int route = -1;

// Only failures are answered.
u32 take_failures()
{
    struct {
        nlmsghdr header;
        char rest[256];
    } answer;
    u32 failures = 0;
    while (recv(route, &answer, sizeof(answer), MSG_DONTWAIT) > 0)
        failures += answer.header.nlmsg_type == NLMSG_ERROR;
    return failures;
}

} // namespace

void probe_neighbour(u32 ip)
{
    if (route < 0)
        route = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    use_message message = {};
    message.header.nlmsg_len = sizeof(message);
    message.header.nlmsg_type = RTM_NEWNEIGH;
    message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE;
    message.about.ndm_family = AF_INET;
    message.about.ndm_ifindex = static_cast<int>(lan_interface_index());
    message.about.ndm_flags = NTF_USE;
    message.attribute.rta_len = RTA_LENGTH(sizeof(ip));
    message.attribute.rta_type = NDA_DST;
    message.ip = ip;
    count_platform(platform_probes_sent);
    bool sent = send(route, &message, sizeof(message), MSG_DONTWAIT) == static_cast<ssize_t>(sizeof(message));
    count_platform(platform_probes_failed, (sent ? 0 : 1) + take_failures());
}
