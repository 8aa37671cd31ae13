#include "platform/linux/probes.h"

#include "platform/linux/lan_neighbour.h"
#include "platform/linux/platform_counters.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <string.h>
#include <sys/socket.h>

namespace {

// A neighbour entry that is to be used: the kernel behaves as if it had something to send there.
struct use_message {
    nlmsghdr header;
    ndmsg about;
    rtattr attribute;
    unsigned char address[16]; // 4 of IPv4
};
static_assert(sizeof(use_message) == 48, "a request of the routing socket");

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

void probe_address(unsigned char family, const void *address, unsigned short size)
{
    use_message message = {};
    message.header.nlmsg_len = static_cast<u32>(sizeof(message) - sizeof(message.address) + size);
    message.header.nlmsg_type = RTM_NEWNEIGH;
    message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE;
    message.about.ndm_family = family;
    message.about.ndm_ifindex = static_cast<int>(lan_interface_index());
    message.about.ndm_flags = NTF_USE;
    message.attribute.rta_len = static_cast<unsigned short>(RTA_LENGTH(size));
    message.attribute.rta_type = NDA_DST;
    memcpy(message.address, address, size);
    count_platform(platform_probes_sent);
    bool sent = send(route, &message, message.header.nlmsg_len, MSG_DONTWAIT) == static_cast<ssize_t>(message.header.nlmsg_len);
    count_platform(platform_probes_failed, (sent ? 0 : 1) + take_failures());
}

} // namespace

void probe_neighbour(const observed_device &device)
{
    if (route < 0)
        route = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (device.ip != 0)
        probe_address(AF_INET, &device.ip, sizeof(device.ip));
    if (!IN6_IS_ADDR_UNSPECIFIED(&device.ip6))
        probe_address(AF_INET6, &device.ip6, sizeof(device.ip6));
}
