#include "feed/nflog_rules.h"

#include <stdio.h>
#include <string>

namespace {

bool run_nft(const std::string &commands)
{
    FILE *nft = popen("PATH=\"$PATH:/usr/sbin:/sbin\" exec nft -f -", "we");
    if (!nft)
        return false;
    bool written = fwrite(commands.data(), 1, commands.size(), nft) == commands.size();
    return (pclose(nft) == 0) && written;
}

std::string dns_chain(const char *hook, const char *interface)
{
    std::string log = "log group " + std::to_string(log_group) + " snaplen " + std::to_string(bytes_logged);
    return std::string("chain ") + hook + " { type filter hook " + hook + " priority 10; policy accept; " + interface +
           " != \"lo\" udp sport 53 " + log + "; }\n";
}

// Behind the firewall's own chains, so that what they drop is not looked at. Of a connection older than its counters `< 13`
// would log every packet. Only answers of a name server are wanted of what the router itself says and hears.
std::string rules()
{
    std::string log = "log group " + std::to_string(log_group) + " snaplen " + std::to_string(bytes_logged);
    return "table inet appident_feed {\n"
           "chain forward { type filter hook forward priority 10; policy accept;\n"
           "udp sport 53 " +
           log +
           " return\n"
           "meta l4proto { tcp, udp } ct packets 1-" +
           std::to_string(packets_logged) + " " + log + "; }\n" + dns_chain("input", "iifname") +
           dns_chain("output", "oifname") + "}\n";
}

// Adding it first makes the deletion succeed in any case.
constexpr const char *removal = "add table inet appident_feed\ndelete table inet appident_feed\n";

} // namespace

bool load_log_rules()
{
    if (run_nft(removal + rules()))
        return true;
    fprintf(stderr, "appident-feed: nft cannot load the rules (is nftables installed, and is this root?)\n");
    return false;
}

void remove_log_rules()
{
    run_nft(removal);
}
