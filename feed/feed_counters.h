// What the feed counts: one list of names, for its last line, its counters page and status output.
#ifndef FEED_COUNTERS_H
#define FEED_COUNTERS_H

#include <array>
#include <stdint.h>

enum feed_counter : unsigned int {
    feed_packets,
    feed_packets_malformed,
    feed_packets_fragment,
    feed_packets_other,
    feed_packets_local,
    feed_packets_foreign,
    feed_flows,
    feed_flows_by_hello,
    feed_flows_by_dns,
    feed_flows_by_dpi,
    feed_flows_by_address,
    feed_flows_unknown,
    feed_bytes_told,
    feed_bytes_unknown,
    feed_hellos_nameless,
    feed_quic_unreadable,
    feed_dns_answers,
    feed_hits_marked,
    feed_hits_plain,
    feed_hits_not_told,
    feed_messages_sent,
    feed_messages_failed,
    feed_log_lost,
    feed_log_undecodable,
    feed_dumps_failed,
    feed_flow_table_full,
    feed_inspections_full,
    feed_device_table_full,
    feed_uses_full,
    feed_counter_end
};

struct feed_counter_text {
    const char *name; // below 28 letters, as a counters page takes it
    const char *meaning;
};
constexpr feed_counter_text feed_counter_texts[] = {
    {"packets", "packets looked at"},
    {"packets_malformed", "of them with headers that make no sense"},
    {"packets_fragment", "later fragments"},
    {"packets_other", "neither TCP nor UDP"},
    {"packets_local", "within the LAN, or to many receivers"},
    {"packets_foreign", "with neither end in the LAN"},
    {"flows", "connections met between the LAN and outside"},
    {"flows_by_hello", "told by the name in a TLS or QUIC hello, or an HTTP request"},
    {"flows_by_dns", "told by a DNS answer"},
    {"flows_by_dpi", "told by nDPI"},
    {"flows_by_address", "told by a network of one service"},
    {"flows_unknown", "of no known app"},
    {"bytes_told", "bytes of connections with an app"},
    {"bytes_unknown", "bytes of those without"},
    {"hellos_nameless", "hellos without a usable name (encrypted, or none)"},
    {"quic_unreadable", "QUIC Initial packets that could not be read"},
    {"dns_answers", "DNS answers with addresses"},
    {"hits_marked", "intervals that may open a session"},
    {"hits_plain", "intervals that continue one"},
    {"hits_not_told", "intervals of devices without a known IPv4 address"},
    {"messages_sent", "messages sent to the daemon"},
    {"messages_failed", "messages that could not be sent"},
    {"log_lost", "packets that the kernel could not deliver in time"},
    {"log_undecodable", "what it delivered and makes no sense"},
    {"dumps_failed", "times that connection tracking did not tell all its counters"},
    {"flow_table_full", "connections forgotten early: the table was full"},
    {"inspections_full", "connections not looked into: too many at once"},
    {"device_table_full", "devices forgotten early: the table was full"},
    {"uses_full", "apps of a device not counted: too many at once"},
};
static_assert(sizeof(feed_counter_texts) / sizeof(feed_counter_texts[0]) == feed_counter_end, "each counter has its text");

using feed_counters = std::array<uint64_t, feed_counter_end>;

#endif
