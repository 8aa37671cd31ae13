// The traffic that this router forwards, as its kernel sees it: the first packets of connections and the answers of name
// servers are logged by rules of our own, and the bytes of connections are those that connection tracking counts.
#include "feed/conntrack_counters.h"
#include "feed/neighbours.h"
#include "feed/nflog_message.h"
#include "feed/nflog_rules.h"
#include "feed/rights.h"
#include "feed/ruleset_look.h"
#include "feed/wall_clock.h"

#include <algorithm>
#include <arpa/inet.h>
#include <errno.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_log.h>
#include <linux/netlink.h>
#include <netlink/attr.h>
#include <netlink/errno.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>

namespace {

constexpr int receive_buffer_bytes = 4 * 1024 * 1024;
// The kernel sends a datagram when it has gathered so much.
constexpr uint32_t datagram_bytes = 32 * 1024, datagram_packets = 64, datagram_centiseconds = 10;
constexpr int longest_answer_seconds = 5;
constexpr int longest_wait_ms = 100;
// So long before an interval ends its bytes are asked for.
constexpr uint64_t dump_lead_us = 300000;
// Between two looks at the clock.
constexpr int most_datagrams_at_once = 64;

struct packet_log {
    netlink_socket socket;
    bool has_sequence = false;
    uint32_t next_sequence = 0;
};

bool open_log(packet_log *log)
{
    if (!log->socket.open(NETLINK_NETFILTER, 0)) {
        fprintf(stderr, "appident-feed: netfilter's netlink: %s\n", strerror(errno));
        return false;
    }
    log->socket.enlarge_buffer(receive_buffer_bytes);
    nl_msg_ptr request = netfilter_request(NFNL_SUBSYS_ULOG << 8 | NFULNL_MSG_CONFIG, 0, 0, log_group);
    nfulnl_msg_config_cmd bind{NFULNL_CFG_CMD_BIND};
    nfulnl_msg_config_mode mode{htonl(bytes_logged), NFULNL_COPY_PACKET, 0};
    bool whole = request && nla_put(request.get(), NFULA_CFG_CMD, sizeof(bind), &bind) == 0 &&
                 nla_put(request.get(), NFULA_CFG_MODE, sizeof(mode), &mode) == 0 &&
                 nla_put_u32(request.get(), NFULA_CFG_NLBUFSIZ, htonl(datagram_bytes)) == 0 &&
                 nla_put_u32(request.get(), NFULA_CFG_TIMEOUT, htonl(datagram_centiseconds)) == 0 &&
                 nla_put_u32(request.get(), NFULA_CFG_QTHRESH, htonl(datagram_packets)) == 0 &&
                 nla_put_u16(request.get(), NFULA_CFG_FLAGS, htons(NFULNL_CFG_F_SEQ)) == 0;
    int refused = whole ? log->socket.ask(std::move(request)) : -NLE_NOMEM;
    if (refused == 0)
        return true;
    // The kernel gives the same word for a group that another socket has.
    fprintf(stderr, "appident-feed: the kernel's packet log (group %u) cannot be read: %s%s\n", log_group, nl_geterror(refused),
            refused == -NLE_PERM ? "; is another feed running, or does it lack the right CAP_NET_ADMIN?" : "");
    return false;
}

void take_message(packet_log *log, const nlmsghdr *message, uint64_t now, const source_run &run)
{
    logged_packet logged;
    if (!read_logged_packet(message, now, &logged)) {
        run.counts[feed_log_undecodable]++;
        return;
    }
    if (logged.has_sequence) {
        if (log->has_sequence)
            run.counts[feed_log_lost] += logged.sequence - log->next_sequence; // modulo 2^32
        log->has_sequence = true;
        log->next_sequence = logged.sequence + 1;
    }
    run.classify.take(logged.one);
}

void take_packets(packet_log *log, const source_run &run)
{
    for (int i = 0; i < most_datagrams_at_once && log->socket.receive(); i++) {
        uint64_t now = wall_us();
        const nlmsghdr *message = nullptr;
        while ((message = log->socket.next_message(message)) != nullptr)
            if (message->nlmsg_type != NLMSG_DONE) // behind the last of several
                take_message(log, message, now, run);
    }
}

// Whoever loads a firewall anew may flush all tables, this one too.
void tend_rules(netlink_socket *socket, const source_run &run)
{
    ruleset_look seen;
    if (!look_at_rules(socket, &seen))
        return;
    if (!seen.has_own_rules && load_log_rules())
        run.counts[feed_rules_restored]++;
    if (seen.offload_unguarded > run.counts[feed_offload_unguarded])
        fprintf(stderr,
                "appident-feed: %u rules with 'flow add' hide connections or their bytes; "
                "they need 'ct packets > %u' before it, and 'counter;' in the flow table itself\n",
                seen.offload_unguarded, packets_logged);
    run.counts[feed_offload_unguarded] = seen.offload_unguarded;
}

// Of a device that talks to outside over IPv6 only, the log shows no IPv4 address.
void find_ipv4_addresses(classifier *classify, uint64_t now)
{
    if (classify->lacks_neighbours())
        read_ipv4_neighbours(
            [&](const ip_address &address, const mac_address &mac) { classify->learn_neighbour(address, mac, now); });
}

} // namespace

int run_nflog_source(const std::string &, const source_run &run)
{
    packet_log log;
    conntrack_counters counters;
    netlink_socket rules;
    if (!open_log(&log))
        return feed_failed;
    if (!counters.open() || !rules.open(NETLINK_NETFILTER, longest_answer_seconds)) {
        fprintf(stderr, "appident-feed: netfilter's netlink: %s\n", strerror(errno));
        return feed_failed;
    }
    run.opened();
    give_up_rights(true);
    uint64_t refreshed = wall_us();
    run.classify.advance(refreshed);
    // What connections moved before the rules are there is no use that was seen.
    counters.read(run, true, refreshed);
    if (!load_log_rules())
        return feed_failed;
    tend_rules(&rules, run);
    uint64_t counted = 0; // the end of the interval that was counted last
    while (!run.stop) {
        pollfd ready{log.socket.descriptor(), POLLIN, 0};
        poll(&ready, 1, longest_wait_ms);
        take_packets(&log, run);
        uint64_t now = wall_us();
        if (now + dump_lead_us >= run.classify.interval_end() && counted != run.classify.interval_end()) {
            counted = run.classify.interval_end();
            uint64_t in_time = std::min(now, counted - 1);
            find_ipv4_addresses(&run.classify, in_time);
            if (counters.read(run, false, in_time))
                run.classify.end_count(in_time);
            now = wall_us();
        }
        run.classify.advance(now);
        if (now - refreshed >= interval_us) {
            tend_rules(&rules, run);
            run.refresh();
            refreshed = now;
        }
    }
    remove_log_rules();
    take_packets(&log, run);
    find_ipv4_addresses(&run.classify, wall_us());
    counters.read(run, false, wall_us());
    run.classify.finish();
    return feed_done;
}

void adapt_to_nflog(classifier_options *options)
{
    options->packets_shown = packets_logged;
    options->count_packets = false;
}
