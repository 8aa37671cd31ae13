// The LAN interface's own addresses.
#include "igd/igd_lib.h"

#include "common/guards.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/neighbours.h"

#include <net/if.h>
#include <net/if_arp.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

bool ask_interface(int fd, unsigned long what, ifreq *about)
{
    *about = {};
    memcpy(about->ifr_name, settings().lan_interface, sizeof(settings().lan_interface));
    static_assert(sizeof(settings().lan_interface) == sizeof(about->ifr_name), "an interface's name");
    return ioctl(fd, what, about) == 0;
}

in_addr address_of(const ifreq &about)
{
    sockaddr_in address;
    memcpy(&address, &about.ifr_addr, sizeof(address));
    return address.sin_addr;
}

} // namespace

int get_lan_config(struct nos_lan_cfg *cfg)
{
    // The daemon asks once, long before traffic: time enough to learn who is on the LAN.
    neighbours_start();
    fd_guard fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq about;
    if (!cfg || fd.get() < 0 || !ask_interface(fd.get(), SIOCGIFADDR, &about))
        return -1;
    cfg->ip = address_of(about);
    if (!ask_interface(fd.get(), SIOCGIFNETMASK, &about))
        return -1;
    cfg->mask = address_of(about);
    if (!ask_interface(fd.get(), SIOCGIFHWADDR, &about) || about.ifr_hwaddr.sa_family != ARPHRD_ETHER)
        return -1;
    memcpy(cfg->mac, about.ifr_hwaddr.sa_data, sizeof(cfg->mac));
    return 0;
}
