#include "tools/appidentctl/lan_look.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <stdio.h>

lan_look look_at_lan(const std::string &interface)
{
    lan_look look = {};
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0)
        return look;
    std::unique_ptr<ifaddrs, void (*)(ifaddrs *)> owner(list, freeifaddrs);
    for (const ifaddrs *one = list; one; one = one->ifa_next) {
        if (interface != one->ifa_name)
            continue;
        look.exists = true;
        look.up = one->ifa_flags & IFF_UP;
        if (!one->ifa_addr || one->ifa_addr->sa_family != AF_INET)
            continue;
        char text[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(one->ifa_addr)->sin_addr, text, sizeof(text));
        look.address = text;
    }
    return look;
}

int count_neighbours(const std::string &interface)
{
    constexpr unsigned int resolved = 0x2 | 0x4; // a MAC is known; permanent
    // Not /proc/net, which a service that sees only processes (ProcSubset=pid) does not have.
    std::unique_ptr<FILE, int (*)(FILE *)> file(fopen("/proc/self/net/arp", "re"), fclose);
    if (!file)
        return -1;
    int count = 0;
    char line[256];
    while (fgets(line, sizeof(line), file.get())) {
        unsigned int flags = 0;
        char device[64] = "";
        if (sscanf(line, "%*s %*s %x %*s %*s %63s", &flags, device) == 2 && (flags & resolved) && interface == device)
            count++;
    }
    return count;
}
