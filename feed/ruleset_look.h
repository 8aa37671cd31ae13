// A look at the kernel's nft rules: are the feed's own still there, and does another rule hide connections from them?
//
// A rule with `flow add` passes a connection to a flow table, whose packets no rule sees any more. Where that happens before
// the packets are there by which an app is told, the feed sees nothing. It is guarded by `ct packets > 12` in the rule itself,
// or by a rule before it in its chain that ends the way of the first packets. The flow table needs `counter` as well: without
// it connection tracking counts no packet that takes this way, and the feed learns of no bytes.
#ifndef FEED_RULESET_LOOK_H
#define FEED_RULESET_LOOK_H

#include "feed/netlink_socket.h"

#include <string>
#include <vector>

struct ruleset_look {
    bool has_own_rules = false;
    uint32_t offload_unguarded = 0;            // rules
    std::string guarded_chain;                 // the chain of which an earlier rule guards the later ones
    std::vector<std::string> uncounted_tables; // flow tables without `counter`
};

// Asks the kernel for all flow tables and rules. False when it does not tell, or they changed meanwhile.
bool look_at_rules(netlink_socket *socket, ruleset_look *out);
// Other messages are passed over. The flow tables come first, then the rules in the order in which the kernel tells them.
void take_flow_table(const nlmsghdr *message, ruleset_look *out);
void take_rule(const nlmsghdr *message, ruleset_look *out);

#endif
