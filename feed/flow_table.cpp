#include "feed/flow_table.h"

namespace {

uint64_t hash_of(const flow_key &key)
{
    uint64_t ports = static_cast<uint64_t>(key.device_port) << 32 | static_cast<uint64_t>(key.server_port) << 8 | key.protocol;
    return hash_of(key.server, hash_of(key.device, ports));
}

} // namespace

flow_table::flow_table(size_t most_flows) : limit(most_flows)
{
    size_t count = 64;
    while (count < limit)
        count *= 2;
    buckets.assign(count, no_flow);
}

uint32_t *flow_table::bucket_of(const flow_key &key)
{
    return &buckets[static_cast<size_t>(hash_of(key)) & (buckets.size() - 1)];
}

uint32_t flow_table::index_of(const flow *which) const
{
    const feed_device *device = which->device;
    // A record does not know its number; its neighbour in the device's list does.
    if (which->newer == no_flow)
        return device->newest_flow;
    return records[which->newer].older;
}

flow *flow_table::find(const flow_key &key)
{
    for (flow *one = at(*bucket_of(key)); one; one = at(one->next_same_hash))
        if (one->key == key)
            return one;
    return nullptr;
}

flow *flow_table::add(const flow_key &key, feed_device *device)
{
    uint32_t index = 0;
    if (!free_records.empty()) {
        index = free_records.back();
        free_records.pop_back();
    } else if (records.size() < limit) {
        index = static_cast<uint32_t>(records.size());
        records.emplace_back();
    } else {
        return nullptr;
    }
    flow *made = &records[index];
    made->key = key;
    made->device = device;
    uint32_t *bucket = bucket_of(key);
    made->next_same_hash = *bucket;
    *bucket = index;
    link_newest(index);
    device->flows++;
    used++;
    return made;
}

void flow_table::remove(flow *which)
{
    uint32_t index = index_of(which);
    uint32_t *link = bucket_of(which->key);
    while (*link != index)
        link = &records[*link].next_same_hash;
    *link = which->next_same_hash;
    unlink(index);
    which->device->flows--;
    used--;
    *which = flow{};
    free_records.push_back(index);
}

void flow_table::touch(flow *which)
{
    if (which->newer == no_flow)
        return;
    uint32_t index = index_of(which);
    unlink(index);
    link_newest(index);
}

void flow_table::link_newest(uint32_t index)
{
    flow &one = records[index];
    feed_device &device = *one.device;
    one.newer = no_flow;
    one.older = device.newest_flow;
    if (flow *next = at(one.older))
        next->newer = index;
    else
        device.oldest_flow = index;
    device.newest_flow = index;
}

void flow_table::unlink(uint32_t index)
{
    flow &one = records[index];
    feed_device &device = *one.device;
    if (flow *newer = at(one.newer))
        newer->older = one.older;
    else
        device.newest_flow = one.older;
    if (flow *older = at(one.older))
        older->newer = one.newer;
    else
        device.oldest_flow = one.newer;
}
