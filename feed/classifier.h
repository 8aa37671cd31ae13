// Packets in, use of apps out.
//
// A source gives packets in the order of their time; where it sees the first packets of a connection only, it also gives the
// counters of connection tracking. advance() ends intervals when no packet does. One thread.
#ifndef FEED_CLASSIFIER_H
#define FEED_CLASSIFIER_H

#include "feed/dns_memory.h"
#include "feed/feed_counters.h"
#include "feed/flow_table.h"

struct classifier_options {
    std::vector<ip_network> lan;
    // No IPv6 network of the LAN is given: of two outside IPv6 addresses the client's is taken for the device.
    bool guess_ipv6_device = true;
    // False: a source shows the first packets only, and count_flow() brings all bytes.
    bool count_packets = true;
    // So many packets of a connection are shown at most, of TCP without those that carry nothing but an acknowledgement; 0: all
    // of them.
    uint32_t packets_shown = 0;
    bool use_dpi = true;
    size_t most_flows = 16384;
    size_t most_devices = 1024;
    size_t most_inspections = 4096;
    size_t most_dns_names = 16384;
};

// A connection so far, as connection tracking counted it.
struct flow_count {
    uint64_t up_bytes, down_bytes, packets;
    bool began_outside; // its first packet came from outside
};

class classifier {
public:
    // `flows` may be empty.
    classifier(const classifier_options &options, app_catalogue catalogue, hit_sink hits, flow_sink flows = {});

    void take(const packet &packet);
    void count_flow(const flow_key &key, const flow_count &count, uint64_t time_us);
    bool knows(const flow_key &key) { return flows.find(key) != nullptr; }
    // The running interval ends then; count_flow() before it.
    uint64_t interval_end() const { return interval_begin + interval_us; }
    // Connection tracking has told all connections that it knows. One that it did not tell twice is over.
    void end_count(uint64_t time_us);
    // Some device's IPv4 address is not known: learn_neighbour() may tell it, by the link address.
    bool lacks_neighbours();
    void learn_neighbour(const ip_address &address, const mac_address &mac, uint64_t time_us);
    // The time goes on without packets.
    void advance(uint64_t time_us);
    // Every open connection is decided and reported, and forgotten; the interval runs on.
    void end_flows();
    // The source ends: end_flows(), and the running interval ends.
    void finish();

    // Flows that are decided keep their app.
    void set_catalogue(app_catalogue fresh);
    const app_catalogue &catalogue() const { return apps; }
    const feed_counters &counters() const { return counts; }

private:
    enum class direction { up, down, local, foreign };

    direction direction_of(const ip_packet &ip, const packet &from);
    direction guess_direction(const ip_packet &ip, const packet &from);
    // The link address of a device that is no router.
    bool is_device_link(bool is_known, const uint8_t (&mac)[6]);
    void learn_link(const ip_packet &ip, const packet &from, direction way);
    // `link`: its link address, null where it is not known.
    feed_device *device_for(const ip_address &address, uint64_t time_us, const mac_address *link = nullptr);
    void learn_link_of(const ip_address &address, const mac_address &mac, uint64_t time_us);
    flow *flow_for(const flow_key &key, feed_device *device, const ip_packet &ip, direction way, uint64_t time_us);
    flow *new_flow(const flow_key &key, feed_device *device, uint64_t time_us);
    void make_place(feed_device *for_device);
    void take_dns(const ip_packet &ip, const packet &from);

    void note_packet(flow *one, const ip_packet &ip, direction way);
    void inspect(flow *one, const ip_packet &ip, direction way, uint64_t time_us);
    bool start_looking(flow *one);
    void take_hello(flow *one, const hello_answer &answer);
    bool take_dns_evidence(flow *one);
    // The end of looking: nDPI's last word, then the address.
    void give_up(flow *one);
    void decide(flow *one, const app_rule *rule, evidence by);
    void stop_looking(flow *one);

    void credit(flow *one);
    app_use *use_of(feed_device *device, uint32_t app);
    void drop_flow(flow *one);
    void forget_device(feed_device *device);
    void sweep(uint64_t time_us);
    void end_interval();
    void tell_uses(feed_device *device);

    classifier_options options;
    app_catalogue apps;
    hit_sink hits;
    flow_sink flow_reports;
    feed_counters counts{};
    uint64_t bytes_told = 0, bytes_unknown = 0;
    stream_budget hello_memory;
    dpi_engine dpi;
    device_table devices;
    flow_table flows;
    dns_memory names;
    size_t inspections = 0;
    uint64_t interval_begin = 0; // 0: no packet yet
    uint64_t interval_number = 1;
};

#endif
