// What the feed counts: one list, for its last line, its counter page and `appidentctl`, which reads that.
//
// The feed counts in 64 bits; on the page the counters wrap at 2^32.
#ifndef FEED_COUNTERS_H
#define FEED_COUNTERS_H

#include "common/counter_page.h"

#include <array>
#include <stdint.h>

// Where the service writes its page. /var/run is /run on Debian, and the one that OpenWrt has.
constexpr const char *feed_counters_path = "/var/run/appident-feed/feed.counters";

// Each counter, once: its name, its kind, its meaning. A new counter is a new line here, at the place where it is to be
// printed.
// clang-format off
#define FEED_COUNTERS(row) \
    row(started_uptime,     state, "uptime second at which the process started") \
    row(packets,            total, "packets looked at") \
    row(packets_malformed,  part,  "with headers that make no sense") \
    row(packets_fragment,   part,  "later fragments") \
    row(packets_other,      part,  "neither TCP nor UDP") \
    row(packets_local,      part,  "within the LAN, or to many receivers") \
    row(packets_foreign,    part,  "with neither end in the LAN") \
    row(log_lost,           total, "packets that the kernel could not deliver in time") \
    row(log_undecodable,    total, "what it delivered and makes no sense") \
    row(flows,              total, "connections met between the LAN and outside") \
    row(flows_by_hello,     part,  "told by the name in a TLS or QUIC hello, or an HTTP request") \
    row(flows_by_dns,       part,  "told by a DNS answer") \
    row(flows_by_dpi,       part,  "told by nDPI") \
    row(flows_by_address,   part,  "told by a network of one service") \
    row(flows_unknown,      part,  "of no known app") \
    row(kbytes_told,        total, "kilobytes of connections with an app") \
    row(kbytes_unknown,     total, "kilobytes of those without") \
    row(hellos_nameless,    total, "hellos without a usable name (encrypted, or none)") \
    row(quic_unreadable,    total, "QUIC Initial packets that could not be read") \
    row(dns_answers,        total, "DNS answers with addresses") \
    row(hits_marked,        total, "intervals that may open a session") \
    row(hits_plain,         total, "intervals that continue one") \
    row(hits_not_told,      total, "intervals of devices without a known IPv4 address") \
    row(messages_sent,      total, "messages sent to the daemon") \
    row(messages_failed,    total, "messages that could not be sent") \
    row(dumps_failed,       total, "times that connection tracking did not tell all its counters") \
    row(flow_table_full,    total, "connections forgotten early: the table was full") \
    row(inspections_full,   total, "connections not looked into: too many at once") \
    row(device_table_full,  total, "devices forgotten early: the table was full") \
    row(uses_full,          total, "apps of a device not counted: too many at once") \
    row(rules_restored,     total, "times that somebody had removed the log rules, and they were loaded again") \
    row(offload_unguarded,  total, "rules that now offload connections before they are told, or uncounted") \
    row(lines_skipped,      total, "lines of the catalogue that now make no sense, and files that cannot be read")
// clang-format on

// feed_started_uptime, feed_packets ...
#define FEED_COUNTER_ID(name, kind, meaning) feed_##name,
enum feed_counter : unsigned int { FEED_COUNTERS(FEED_COUNTER_ID) feed_counter_end };
#undef FEED_COUNTER_ID

using feed_counters = std::array<uint64_t, feed_counter_end>;

#endif
