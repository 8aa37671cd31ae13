#include "platform/linux/lan_neighbour.h"

#include "common/guards.h"
#include "platform/linux/lan_choice.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/addr.h>
#include <netlink/route/neighbour.h>
#include <string.h>

namespace {

constexpr int resolved_states = NUD_PERMANENT | NUD_NOARP | NUD_REACHABLE | NUD_PROBE | NUD_STALE | NUD_DELAY;
constexpr int confirmed_states = NUD_PERMANENT | NUD_NOARP | NUD_REACHABLE;

bool is_device(const unsigned char *mac)
{
    static constexpr unsigned char zero[6] = {};
    bool to_many = mac[0] & 1;
    return !to_many && memcmp(mac, zero, sizeof(zero)) != 0;
}

bool take_address(rtnl_neigh *neigh, lan_neighbour *out)
{
    nl_addr *address = rtnl_neigh_get_dst(neigh);
    int family = rtnl_neigh_get_family(neigh);
    size_t size = family == AF_INET ? sizeof(out->ip) : family == AF_INET6 ? sizeof(out->ip6) : 0;
    if (size == 0 || !address || nl_addr_get_len(address) != size)
        return false;
    *out = {};
    memcpy(family == AF_INET ? static_cast<void *>(&out->ip) : &out->ip6, nl_addr_get_binary_addr(address), size);
    return family == AF_INET ? out->ip != 0 : !IN6_IS_ADDR_UNSPECIFIED(&out->ip6);
}

} // namespace

u32 lan_interface_index()
{
    return if_nametoindex(chosen_lan().interface);
}

bool read_lan_neighbour(nlmsghdr *message, lan_neighbour *out)
{
    if (message->nlmsg_type != RTM_NEWNEIGH && message->nlmsg_type != RTM_DELNEIGH)
        return false;
    rtnl_neigh *parsed = nullptr;
    if (rtnl_neigh_parse(message, &parsed) < 0)
        return false;
    std::unique_ptr<rtnl_neigh, released_by<rtnl_neigh_put>> neigh(parsed);
    // Looked up by name each time: a LAN interface that is made anew has another index.
    if (!take_address(parsed, out) || static_cast<u32>(rtnl_neigh_get_ifindex(parsed)) != lan_interface_index())
        return false;
    nl_addr *hardware = rtnl_neigh_get_lladdr(parsed);
    if (!hardware || nl_addr_get_len(hardware) != sizeof(out->mac))
        return true;
    memcpy(out->mac, nl_addr_get_binary_addr(hardware), sizeof(out->mac));
    out->usable =
        message->nlmsg_type == RTM_NEWNEIGH && (rtnl_neigh_get_state(parsed) & resolved_states) != 0 && is_device(out->mac);
    out->confirmed = out->usable && (rtnl_neigh_get_state(parsed) & confirmed_states) != 0;
    return true;
}
