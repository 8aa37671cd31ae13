#include "platform/linux/lan_choice.h"

#include "common/guards.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/lan_fitness.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netlink/cache.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <netlink/socket.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

namespace {

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
lan_choice current;
int current_fitness = 0;
bool told = false;
time_t first_look = 0, last_look = 0; // seconds since the box started

// While a box starts, the bridge of its containers may have an address before its LAN has. Later on, one choice is better than
// the best one.
bool may_still_change()
{
    constexpr time_t settling_seconds = 1800, look_every = 5;
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    first_look = first_look ? first_look : now.tv_sec;
    if (now.tv_sec - first_look > settling_seconds || now.tv_sec - last_look < look_every)
        return false;
    last_look = now.tv_sec;
    return true;
}

// All links of the kernel; null when it does not tell.
std::unique_ptr<nl_cache, released_by<nl_cache_free>> read_links()
{
    std::unique_ptr<nl_sock, released_by<nl_socket_free>> sock(nl_socket_alloc());
    nl_cache *links = nullptr;
    if (sock && nl_connect(sock.get(), NETLINK_ROUTE) >= 0)
        rtnl_link_alloc_cache(sock.get(), AF_UNSPEC, &links);
    return std::unique_ptr<nl_cache, released_by<nl_cache_free>>(links);
}

rtnl_link *first_link(nl_cache *links)
{
    return reinterpret_cast<rtnl_link *>(nl_cache_get_first(links));
}

rtnl_link *link_after(rtnl_link *link)
{
    return reinterpret_cast<rtnl_link *>(nl_cache_get_next(reinterpret_cast<nl_object *>(link)));
}

bool is_private(const sockaddr *address)
{
    if (!address || address->sa_family != AF_INET)
        return false;
    sockaddr_in in;
    memcpy(&in, address, sizeof(in));
    u32 ip = ntohl(in.sin_addr.s_addr);
    return ip >> 24 == 10 || ip >> 20 == 0xAC1 || ip >> 16 == 0xC0A8;
}

bool has_private_address(const ifaddrs *addresses, const char *name)
{
    for (; addresses; addresses = addresses->ifa_next)
        if (strcmp(addresses->ifa_name, name) == 0 && is_private(addresses->ifa_addr))
            return true;
    return false;
}

bool has_default_route(const char *name)
{
    std::unique_ptr<FILE, released_by<fclose>> routes(fopen("/proc/self/net/route", "re"));
    char line[512], interface[32];
    unsigned long to = 0, mask = 0;
    while (routes && fgets(line, sizeof(line), routes.get()))
        if (sscanf(line, "%31s %lx %*s %*s %*s %*s %*s %lx", interface, &to, &mask) == 3 && to == 0 && mask == 0 &&
            strcmp(interface, name) == 0)
            return true;
    return false;
}

lan_link describe(rtnl_link *link, const ifaddrs *addresses)
{
    constexpr unsigned excluded = IFF_LOOPBACK | IFF_POINTOPOINT;
    lan_link out = {};
    const char *name = rtnl_link_get_name(link), *kind = rtnl_link_get_type(link);
    snprintf(out.name, sizeof(out.name), "%s", name ? name : "");
    snprintf(out.kind, sizeof(out.kind), "%s", kind ? kind : "");
    out.index = rtnl_link_get_ifindex(link);
    out.master = rtnl_link_get_master(link);
    // Of other kinds this may be an index in another network namespace.
    out.carrier = strcmp(out.kind, "vlan") == 0 ? rtnl_link_get_link(link) : 0;
    unsigned flags = rtnl_link_get_flags(link);
    out.has_address = has_private_address(addresses, out.name);
    out.may_be_lan = out.has_address && rtnl_link_get_arptype(link) == ARPHRD_ETHER && (flags & IFF_UP) &&
                     !(flags & excluded) && !has_default_route(out.name);
    return out;
}

// As far as the settings do not name one. Returns how fit it is, 0 for none.
int choose(lan_choice *out)
{
    *out = {"", "no interface has a private IPv4 address and no default route"};
    ifaddrs *list = nullptr;
    auto cache = read_links();
    if (!cache || getifaddrs(&list) != 0)
        return 0;
    std::unique_ptr<ifaddrs, released_by<freeifaddrs>> addresses(list);
    size_t room = static_cast<size_t>(nl_cache_nitems(cache.get())), count = 0, would_do = 0;
    heap_ptr<lan_link> links(static_cast<lan_link *>(calloc(room, sizeof(lan_link))));
    for (rtnl_link *link = first_link(cache.get()); links && link && count < room; link = link_after(link)) {
        links.get()[count] = describe(link, list);
        would_do += links.get()[count++].may_be_lan;
    }
    int fitness = 0;
    const lan_link *best = fittest_lan(links.get(), count, &fitness);
    if (!best)
        return 0;
    memcpy(out->interface, best->name, sizeof(out->interface));
    bool by_custom = strcmp(best->name, customary_lan) == 0;
    snprintf(out->why, sizeof(out->why), "%s%s",
             by_custom ? "a bridge of that name is the LAN by custom" : "it has a private IPv4 address and no default route",
             !by_custom && would_do > 1 ? ", the first of several by what is below it" : "");
    return fitness;
}

bool is_usable(const lan_choice &choice)
{
    if (!*choice.interface || !if_nametoindex(choice.interface))
        return false;
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return true;
    std::unique_ptr<ifaddrs, released_by<freeifaddrs>> addresses(list);
    return has_private_address(list, choice.interface) || strcmp(choice.interface, customary_lan) == 0;
}

} // namespace

lan_choice chosen_lan()
{
    mutex_guard held(lock);
    return current;
}

bool look_for_lan()
{
    mutex_guard held(lock);
    bool named = strcmp(settings().lan_interface, "auto") != 0;
    bool keep = told && (named || is_usable(current));
    if (keep && (named || !may_still_change()))
        return *current.interface != 0;
    lan_choice found = {};
    int fit = 0;
    if (named) {
        memcpy(found.interface, settings().lan_interface, sizeof(found.interface));
        snprintf(found.why, sizeof(found.why), "the settings name it");
    } else {
        fit = choose(&found);
    }
    if (keep && fit <= current_fitness)
        return true;
    // An interface without its address is better than none: the address may come back.
    if (!*found.interface && if_nametoindex(current.interface))
        return true;
    if (!told || strcmp(found.interface, current.interface) != 0)
        fprintf(stderr, "appident: %s%s: %s\n", *found.interface ? "the LAN is " : "no LAN yet", found.interface, found.why);
    told = true;
    current = found;
    current_fitness = fit;
    return *current.interface != 0;
}
