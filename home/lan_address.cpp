#include "home/lan_address.h"

#include "common/guards.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <string.h>

namespace {

using interface_list = std::unique_ptr<ifaddrs, released_by<freeifaddrs>>;

interface_list read_interfaces()
{
    ifaddrs *list = nullptr;
    return interface_list(getifaddrs(&list) == 0 ? list : nullptr);
}

} // namespace

std::string address_of_interface(const std::string &interface)
{
    interface_list all = read_interfaces();
    for (const ifaddrs *one = all.get(); one; one = one->ifa_next)
        if (interface == one->ifa_name && one->ifa_addr && one->ifa_addr->sa_family == AF_INET)
            return address_text(one->ifa_addr);
    return "";
}

std::vector<std::string> addresses_behind(const std::string &address)
{
    std::vector<std::string> found;
    if (!is_any_address(address))
        return {address};
    interface_list all = read_interfaces();
    for (const ifaddrs *one = all.get(); one; one = one->ifa_next) {
        std::string text = one->ifa_addr ? address_text(one->ifa_addr) : "";
        if (!text.empty())
            found.push_back(text);
    }
    return found;
}

bool is_loopback(const std::string &address)
{
    return address.compare(0, 4, "127.") == 0 || address == "::1";
}

bool is_any_address(const std::string &address)
{
    return address == "0.0.0.0" || address == "::";
}

bool read_address(const std::string &text, int64_t port, sockaddr_storage *out)
{
    *out = {};
    sockaddr_in in = {};
    sockaddr_in6 in6 = {};
    in.sin_family = AF_INET;
    in6.sin6_family = AF_INET6;
    in.sin_port = in6.sin6_port = htons(static_cast<uint16_t>(port));
    if (inet_pton(AF_INET, text.c_str(), &in.sin_addr) == 1)
        memcpy(out, &in, sizeof(in));
    else if (inet_pton(AF_INET6, text.c_str(), &in6.sin6_addr) == 1)
        memcpy(out, &in6, sizeof(in6));
    return out->ss_family != AF_UNSPEC;
}

std::string address_text(const sockaddr *address)
{
    char text[INET6_ADDRSTRLEN] = "";
    sockaddr_in in;
    sockaddr_in6 in6;
    if (address->sa_family == AF_INET) {
        memcpy(&in, address, sizeof(in));
        inet_ntop(AF_INET, &in.sin_addr, text, sizeof(text));
    } else if (address->sa_family == AF_INET6) {
        constexpr size_t before_v4 = 12;
        memcpy(&in6, address, sizeof(in6));
        if (IN6_IS_ADDR_V4MAPPED(&in6.sin6_addr))
            inet_ntop(AF_INET, in6.sin6_addr.s6_addr + before_v4, text, sizeof(text));
        else
            inet_ntop(AF_INET6, &in6.sin6_addr, text, sizeof(text));
    }
    return text;
}

std::string client_network(const std::string &address)
{
    in6_addr in6;
    if (inet_pton(AF_INET6, address.c_str(), &in6) != 1)
        return address;
    char text[INET6_ADDRSTRLEN] = "";
    memset(in6.s6_addr + 8, 0, 8);
    inet_ntop(AF_INET6, &in6, text, sizeof(text));
    return text;
}
