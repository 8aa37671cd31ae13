// The LAN interface's own addresses.
//
// The daemon asks once, at its start, and shows the address in its log; nothing it does later depends on it. So a LAN that is
// not up yet is waited for a while, and no reason to end: whoever appears on it later is met all the same.
#include "igd/igd_lib.h"

#include "common/guards.h"
#include "platform/linux/lan_choice.h"
#include "platform/linux/neighbours.h"

#include <net/if.h>
#include <net/if_arp.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

constexpr int patience_seconds = 10;

bool ask_interface(int fd, unsigned long what, ifreq *about)
{
    lan_choice lan = chosen_lan();
    *about = {};
    memcpy(about->ifr_name, lan.interface, sizeof(lan.interface));
    static_assert(sizeof(lan.interface) == sizeof(about->ifr_name), "an interface's name");
    return ioctl(fd, what, about) == 0;
}

in_addr address_of(const ifreq &about)
{
    sockaddr_in address;
    memcpy(&address, &about.ifr_addr, sizeof(address));
    return address.sin_addr;
}

bool ask_addresses(int fd, nos_lan_cfg *cfg)
{
    ifreq about;
    if (!look_for_lan() || !ask_interface(fd, SIOCGIFADDR, &about))
        return false;
    cfg->ip = address_of(about);
    if (ask_interface(fd, SIOCGIFNETMASK, &about))
        cfg->mask = address_of(about);
    return true;
}

} // namespace

int get_lan_config(struct nos_lan_cfg *cfg)
{
    fd_guard fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!cfg || fd.get() < 0)
        return -1;
    *cfg = {};
    bool has_address = ask_addresses(fd.get(), cfg);
    for (int waited = 0; !has_address && waited < patience_seconds; ++waited) {
        poll(nullptr, 0, 1000);
        has_address = ask_addresses(fd.get(), cfg);
    }
    // Long before traffic: time enough to learn who is on the LAN.
    neighbours_start();
    ifreq about;
    bool has_mac = ask_interface(fd.get(), SIOCGIFHWADDR, &about);
    if (has_mac && about.ifr_hwaddr.sa_family == ARPHRD_ETHER)
        memcpy(cfg->mac, about.ifr_hwaddr.sa_data, sizeof(cfg->mac));
    // An interface that carries no Ethernet was named by mistake.
    return has_mac && about.ifr_hwaddr.sa_family != ARPHRD_ETHER ? -1 : 0;
}
