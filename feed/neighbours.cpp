#include "feed/neighbours.h"

#include "feed/netlink_socket.h"

#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <string.h>

namespace {

constexpr int longest_answer_seconds = 2;
constexpr size_t ipv4_bytes = 4;

void take_neighbour(const nlmsghdr *message, const neighbour_sink &sink)
{
    nlattr *found[NDA_MAX + 1] = {};
    if (message->nlmsg_type != RTM_NEWNEIGH ||
        nlmsg_parse(const_cast<nlmsghdr *>(message), sizeof(ndmsg), found, NDA_MAX, nullptr) != 0)
        return;
    const nlattr *address = found[NDA_DST], *link = found[NDA_LLADDR];
    mac_address mac;
    if (!address || !link || nla_len(address) != static_cast<int>(ipv4_bytes) || nla_len(link) != static_cast<int>(mac.size()))
        return;
    memcpy(mac.data(), nla_data(link), mac.size());
    sink(ipv4_address(static_cast<const uint8_t *>(nla_data(address))), mac);
}

} // namespace

bool read_ipv4_neighbours(const neighbour_sink &sink)
{
    netlink_socket socket;
    nl_msg_ptr request(nlmsg_alloc());
    ndmsg wanted{};
    wanted.ndm_family = AF_INET;
    uint32_t sequence = 0;
    bool asked = socket.open(NETLINK_ROUTE, longest_answer_seconds) && request &&
                 nlmsg_put(request.get(), NL_AUTO_PORT, NL_AUTO_SEQ, RTM_GETNEIGH, 0, NLM_F_REQUEST | NLM_F_DUMP) &&
                 nlmsg_append(request.get(), &wanted, sizeof(wanted), NLMSG_ALIGNTO) == 0 &&
                 socket.tell(request.get(), &sequence);
    while (asked && socket.receive()) {
        const nlmsghdr *message = nullptr;
        while ((message = socket.next_message(message)) != nullptr) {
            if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR)
                return message->nlmsg_type == NLMSG_DONE;
            take_neighbour(message, sink);
        }
    }
    return false;
}
