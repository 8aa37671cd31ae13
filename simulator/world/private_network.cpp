#include "simulator/world/private_network.h"

#include "common/guards.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/capability.h>
#include <linux/neighbour.h>
#include <net/if.h>
#include <netlink/route/addr.h>
#include <netlink/route/link.h>
#include <netlink/route/neighbour.h>
#include <set>
#include <sstream>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// The program runs three times: outside, in its new namespaces, and there below the wrapper.
constexpr const char *stage_mark = "HOUSEHOLD_STAGE";
constexpr const char *stage_entered = "entered";
constexpr const char *stage_inside = "inside";

using socket_ptr = std::unique_ptr<nl_sock, released_by<nl_socket_free>>;
using link_ptr = std::unique_ptr<rtnl_link, released_by<rtnl_link_put>>;
using rtnl_addr_ptr = std::unique_ptr<rtnl_addr, released_by<rtnl_addr_put>>;
using neigh_ptr = std::unique_ptr<rtnl_neigh, released_by<rtnl_neigh_put>>;
using addr_ptr = std::unique_ptr<nl_addr, released_by<nl_addr_put>>;

bool complain(const char *what, const char *why)
{
    fprintf(stderr, "%s: %s\n", what, why);
    return false;
}

// The words that begin a command in new namespaces; empty where none are to be had. Tried out, as so much can forbid it.
std::vector<std::string> namespace_words()
{
    // Below a user namespace of its own nothing mounted can show outside, so its mounts may stay as they are.
    const std::vector<std::string> as_root = {"unshare", "--net", "--mount", "--"};
    const std::vector<std::string> as_user = {"unshare", "--user",        "--map-root-user", "--net",
                                              "--mount", "--propagation", "unchanged",       "--"};
    for (const auto &way : {as_root, as_user}) {
        if (way == as_root && !may_set_up_networks())
            continue;
        std::string command;
        for (const std::string &word : way)
            command += word + " ";
        if (system((command + "true 2>/dev/null").c_str()) == 0)
            return way;
    }
    return {};
}

std::string why_no_namespaces()
{
    std::ifstream mounts("/proc/self/mountinfo");
    if (!mounts)
        return "/proc is not mounted here";
    bool root_mounted = false;
    for (std::string line, skipped, place; std::getline(mounts, line);) {
        std::istringstream(line) >> skipped >> skipped >> skipped >> skipped >> place;
        root_mounted = root_mounted || place == "/";
    }
    if (!root_mounted)
        return "the directory that this chroot stands in is no mount, so no mount here can be private:"
               " leave it, mount the directory over itself (mount --bind DIRECTORY DIRECTORY) and enter it again";
    return "a private network is not allowed here: run as root, or allow user namespaces"
           " (sysctl kernel.unprivileged_userns_clone=1)";
}

// Replaces this process by the words and this program. Returns on failure only.
std::string run_again(std::vector<std::string> words, char **argv)
{
    words.push_back(std::filesystem::read_symlink("/proc/self/exe").string());
    for (char **word = argv + 1; *word; word++)
        words.push_back(*word);
    std::vector<char *> raw;
    for (std::string &word : words)
        raw.push_back(word.data());
    raw.push_back(nullptr);
    execvp(raw[0], raw.data());
    return std::string(raw[0]) + " cannot be run: " + strerror(errno);
}

socket_ptr route_socket()
{
    socket_ptr route(nl_socket_alloc());
    if (route && nl_connect(route.get(), NETLINK_ROUTE) < 0)
        route.reset();
    return route;
}

// What a router calls br-lan is a bridge; a kernel without bridges gets another Ethernet-like interface of that name.
int add_lan_link(nl_sock *route)
{
    int result = -NLE_OPNOTSUPP;
    for (const char *type : {"bridge", "dummy", "veth", "ifb"}) {
        link_ptr link(rtnl_link_alloc());
        rtnl_link_set_name(link.get(), lan_interface_name);
        rtnl_link_set_type(link.get(), type);
        result = rtnl_link_add(route, link.get(), NLM_F_CREATE | NLM_F_EXCL);
        if (result == 0)
            return 0;
    }
    return result;
}

int bring_up(nl_sock *route, const char *name)
{
    link_ptr wanted(rtnl_link_alloc()), change(rtnl_link_alloc());
    rtnl_link_set_ifindex(wanted.get(), static_cast<int>(if_nametoindex(name)));
    rtnl_link_set_flags(change.get(), IFF_UP);
    return rtnl_link_change(route, wanted.get(), change.get(), 0);
}

addr_ptr parse_address(const std::string &text, int family)
{
    nl_addr *address = nullptr;
    nl_addr_parse(text.c_str(), family, &address);
    return addr_ptr(address);
}

bool add_neighbour(nl_sock *route, const std::string &ip, std::string mac, int state)
{
    if (!route)
        return complain("the routing socket", "cannot be opened");
    for (char &mark : mac)
        mark = mark == '-' ? ':' : mark;
    addr_ptr address = parse_address(ip, AF_INET), hardware = parse_address(mac, AF_LLC);
    neigh_ptr neighbour(rtnl_neigh_alloc());
    rtnl_neigh_set_ifindex(neighbour.get(), static_cast<int>(if_nametoindex(lan_interface_name)));
    rtnl_neigh_set_dst(neighbour.get(), address.get());
    rtnl_neigh_set_lladdr(neighbour.get(), hardware.get());
    rtnl_neigh_set_state(neighbour.get(), state);
    int result = rtnl_neigh_add(route, neighbour.get(), NLM_F_CREATE | NLM_F_REPLACE);
    return result >= 0 || complain(ip.c_str(), nl_geterror(result));
}

// The first two components of a path below /tmp, the whole of which a mount over /tmp would hide.
std::string top_below_tmp(const std::string &path)
{
    std::string whole = std::filesystem::weakly_canonical(path).string();
    if (whole.compare(0, 5, "/tmp/") != 0)
        return "";
    return whole.substr(0, whole.find('/', 5));
}

} // namespace

bool may_set_up_networks()
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    return syscall(SYS_capget, &header, data) == 0 && (data[0].effective & (1u << CAP_NET_ADMIN)) != 0;
}

bool inside_private_network()
{
    const char *mark = getenv(stage_mark);
    return mark && strcmp(mark, stage_inside) == 0;
}

std::string enter_private_network(char **argv, const std::vector<std::string> &wrapper)
{
    if (getenv(stage_mark)) {
        // A faster clock keeps shared memory, which it would leave behind when it is interrupted.
        static_cast<void>(mount("tmpfs", "/dev/shm", "tmpfs", 0, "mode=1777,size=16m"));
        setenv(stage_mark, stage_inside, 1);
        return run_again(wrapper, argv);
    }
    std::vector<std::string> words = namespace_words();
    if (words.empty())
        return why_no_namespaces();
    setenv(stage_mark, stage_entered, 1);
    return run_again(words, argv);
}

bool make_private_tmp(const std::vector<std::string> &needed_paths)
{
    std::set<std::string> tops;
    for (const std::string &path : needed_paths)
        if (std::string top = top_below_tmp(path); std::filesystem::is_directory(top))
            tops.insert(top);
    std::vector<std::pair<std::string, int>> held;
    for (const std::string &top : tops)
        held.emplace_back(top, open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777,size=64m") != 0)
        return complain("a private /tmp", strerror(errno));
    for (const auto &[top, fd] : held) {
        std::string source = "/proc/self/fd/" + std::to_string(fd);
        std::filesystem::create_directory(top);
        bool bound = mount(source.c_str(), top.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
        close(fd);
        if (!bound)
            return complain(top.c_str(), strerror(errno));
    }
    return true;
}

bool make_lan(const std::string &address)
{
    socket_ptr route = route_socket();
    if (!route)
        return complain("the routing socket", "cannot be opened");
    if (int result = add_lan_link(route.get()); result < 0)
        return complain("an interface br-lan (bridge, dummy, veth or ifb)", nl_geterror(result));
    rtnl_addr_ptr own(rtnl_addr_alloc());
    addr_ptr local = parse_address(address, AF_INET);
    rtnl_addr_set_ifindex(own.get(), static_cast<int>(if_nametoindex(lan_interface_name)));
    rtnl_addr_set_local(own.get(), local.get());
    if (int result = rtnl_addr_add(route.get(), own.get(), 0); result < 0)
        return complain("the address of br-lan", nl_geterror(result));
    for (const char *name : {"lo", lan_interface_name})
        if (int result = bring_up(route.get(), name); result < 0)
            return complain(name, nl_geterror(result));
    return true;
}

bool meet_neighbour(const std::string &ip, const std::string &mac)
{
    return add_neighbour(route_socket().get(), ip, mac, NUD_REACHABLE);
}

bool settle_neighbours(const std::vector<device_entry> &devices)
{
    socket_ptr route = route_socket();
    for (const device_entry &device : devices)
        if (!add_neighbour(route.get(), device.ip, device.mac, NUD_PERMANENT))
            return false;
    return true;
}
