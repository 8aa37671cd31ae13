// Connections between the LAN and outside: a fixed number of records, found by their ends and linked by device.
//
// When the table is full, the device with the most connections gives up the one it used longest ago, so that no device pushes
// out another's.
#ifndef FEED_FLOW_TABLE_H
#define FEED_FLOW_TABLE_H

#include "feed/device_table.h"
#include "feed/dpi.h"
#include "feed/hello_reader.h"

// What is remembered while a flow's app is looked for.
struct inspection {
    explicit inspection(stream_budget &budget) : hello(budget) {}
    hello_reader hello;
    dpi_flow_ptr dpi;
    int payloads = 0;
    bool hello_done = false;
};

struct flow {
    flow_key key;
    feed_device *device = nullptr; // null: the record is free
    uint32_t next_same_hash = no_flow;
    uint32_t newer = no_flow, older = no_flow; // of the same device
    uint64_t first_us = 0, last_us = 0;
    uint64_t tracked_us = 0;                   // connection tracking knew it then; 0: not asked
    uint64_t up = 0, down = 0;                 // bytes on the wire
    uint64_t waiting_up = 0, waiting_down = 0; // of them, not yet counted for an app
    uint64_t interval = 0;                     // number of the interval in which
    uint64_t interval_bytes = 0;               // these bytes were counted
    uint32_t packets = 0;
    uint32_t app = 0; // 0: none, or not known yet
    uint32_t syn_sequence = 0;
    evidence by = evidence::none;
    bool is_call = false;
    bool is_embedded = false;
    bool is_decided = false;
    bool has_syn = false;      // the device's, with syn_sequence
    bool from_outside = false; // the other end opened the connection
    bool has_payload = false;
    bool is_answered = false; // payload came from outside
    uint8_t closed = 0;       // flow_closed_... bits
    std::string host;
    std::unique_ptr<inspection> looking; // null before the first payload, and once decided
};
enum : uint8_t { flow_closed_by_device = 1, flow_closed_by_server = 2, flow_closed = 3 };

class flow_table {
public:
    explicit flow_table(size_t most_flows);

    flow *find(const flow_key &key);
    // A new one, linked as its device's newest; null when the table is full (the caller removes one).
    flow *add(const flow_key &key, feed_device *device);
    void remove(flow *which);
    // Its device used it last.
    void touch(flow *which);
    flow *at(uint32_t index) { return index == no_flow ? nullptr : &records[index]; }
    size_t size() const { return used; }

    // Every record, free ones too.
    std::deque<flow> records;

private:
    uint32_t index_of(const flow *which) const;
    uint32_t *bucket_of(const flow_key &key);
    void link_newest(uint32_t index);
    void unlink(uint32_t index);

    size_t limit;
    size_t used = 0;
    std::vector<uint32_t> buckets;
    std::vector<uint32_t> free_records;
};

#endif
