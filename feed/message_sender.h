// Hits as accounting messages of connection tracking, multicast over netfilter's netlink to who listens: the daemon.
//
// They go to group 8 only. Programs that watch connections listen on other groups, and end at messages that they do not know.
// Needs CAP_NET_ADMIN over the network namespace.
#ifndef FEED_MESSAGE_SENDER_H
#define FEED_MESSAGE_SENDER_H

#include "feed/hit.h"

#include <memory>

constexpr uint32_t message_group = 8;

struct nl_msg;
struct nl_sock;
struct nl_msg_release {
    void operator()(nl_msg *message) const;
};
struct nl_sock_release {
    void operator()(nl_sock *socket) const;
};
using nl_msg_ptr = std::unique_ptr<nl_msg, nl_msg_release>;
using nl_sock_ptr = std::unique_ptr<nl_sock, nl_sock_release>;

// The rule id of a message: the app's id, from bit 16 on the evidence, and the daemon's start mark where the hit is marked.
uint32_t rule_id_of(const hit &found);

// Null for what the daemon cannot or must not be told: a device without an IPv4 address, and ids that are no app's (0, 8, 300
// to 303, more than 16 bits). A server with an IPv6 address is told as 0.0.0.0. Counts of more than 32 bits are told as the
// greatest.
nl_msg_ptr accounting_message(const hit &found);

enum class send_outcome { sent, not_told, failed };

class message_sender {
public:
    // False, with errno, when there is no such socket.
    bool open();
    // That nobody listens is no failure.
    send_outcome send(const hit &found);

private:
    nl_sock_ptr socket;
};

#endif
