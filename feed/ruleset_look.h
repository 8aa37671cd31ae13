// A look at the kernel's nft rules: are the feed's own still there, and does another rule hide connections from them?
//
// A rule with `flow add` passes a connection to a flow table, whose packets no rule sees any more. Where that happens before
// the packets are there by which an app is told, the feed sees nothing. It is guarded by `ct packets > 12` in the rule itself,
// or by a rule before it in its chain that ends the way of the first packets.
#ifndef FEED_RULESET_LOOK_H
#define FEED_RULESET_LOOK_H

#include "feed/netlink_socket.h"

#include <string>

struct ruleset_look {
    bool has_own_rules = false;
    uint32_t offload_unguarded = 0; // rules
    std::string guarded_chain;      // the chain of which an earlier rule guards the later ones
};

// Asks the kernel for all rules. False when it does not tell, or the rules changed meanwhile.
bool look_at_rules(netlink_socket *socket, ruleset_look *out);
// One rule, in the order in which the kernel tells them; other messages are passed over.
void take_rule(const nlmsghdr *message, ruleset_look *out);

#endif
