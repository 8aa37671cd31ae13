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

std::string log_statement(uint32_t most_bytes = bytes_logged)
{
    return "log group " + std::to_string(log_group) + " snaplen " + std::to_string(most_bytes) + "; ";
}

std::string chain_of(const char *hook, const std::string &rules)
{
    return std::string("chain ") + hook + " { type filter hook " + hook + " priority 10; policy accept; " + rules + "}\n";
}

// Behind the firewall's own chains, so that what they drop is not looked at. A packet of a long connection is to fail at the
// first and only comparison: the protocol before it, a range, or a rule for name servers costs some tens of nanoseconds each,
// for every packet. A connection older than its counters counts 0; without the second comparison all its packets would be
// logged. A TCP packet of at most 100 bytes with the flag ACK alone is an acknowledgement, or carries too little to tell
// anything; it is a third of the packets at which a connection begins. Of what the router itself says and hears only answers of
// a name server are wanted, and the link addresses of those who ask it over IPv6.
std::string rules()
{
    return "table inet appident_feed {\n"
           "chain first_packets {\n"
           "tcp flags == ack meta length <= 100 return\n"
           "meta l4proto { tcp, udp } " +
           log_statement() + "}\n" +
           chain_of("forward", "ct packets <= " + std::to_string(packets_logged) + " ct packets != 0 goto first_packets; ") +
           chain_of("input", "iifname != \"lo\" udp sport 53 " + log_statement() +
                                 "iifname != \"lo\" meta nfproto ipv6 udp dport 53 " + log_statement(question_bytes_logged)) +
           chain_of("output", "oifname != \"lo\" udp sport 53 " + log_statement()) + "}\n";
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
