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

std::string log_statement()
{
    return "log group " + std::to_string(log_group) + " snaplen " + std::to_string(bytes_logged);
}

std::string dns_chain(const char *hook, const char *interface)
{
    return std::string("chain ") + hook + " { type filter hook " + hook + " priority 10; policy accept; " + interface +
           " != \"lo\" udp sport 53 " + log_statement() + "; }\n";
}

// Behind the firewall's own chains, so that what they drop is not looked at. A packet of a long connection is to fail at the
// first and only comparison: the protocol before it, a range, or a rule for name servers costs some tens of nanoseconds each,
// for every packet. A connection older than its counters counts 0; without the second comparison all its packets would be
// logged. A TCP acknowledgement without data, at most 100 bytes with the longest headers, tells nothing and is a third of the
// packets at which a connection begins. Only answers of a name server are wanted of what the router itself says and hears.
std::string rules()
{
    return "table inet appident_feed {\n"
           "chain first_packets {\n"
           "tcp flags == ack meta length <= 100 return\n"
           "meta l4proto { tcp, udp } " +
           log_statement() +
           "; }\n"
           "chain forward { type filter hook forward priority 10; policy accept;\n"
           "ct packets <= " +
           std::to_string(packets_logged) + " ct packets != 0 goto first_packets; }\n" + dns_chain("input", "iifname") +
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
