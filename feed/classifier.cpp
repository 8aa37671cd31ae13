#include "feed/classifier.h"

#include <algorithm>
#include <string.h>

namespace {

constexpr uint16_t dns_port = 53;
constexpr uint16_t first_client_port = 1024;
constexpr uint64_t untracked_us = interval_us + interval_us / 2;
// By then a packet that was to be shown has come.
constexpr uint64_t longest_delay_us = 1000000;

mac_address mac_of(const uint8_t (&bytes)[6])
{
    mac_address mac;
    memcpy(mac.data(), bytes, mac.size());
    return mac;
}

bool opens_connection(const ip_packet &ip)
{
    return ip.protocol == protocol_tcp && (ip.tcp_flags & (tcp_syn | tcp_ack)) == tcp_syn;
}

} // namespace

classifier::classifier(const classifier_options &chosen, app_catalogue catalogue, hit_sink on_hit, flow_sink on_flow)
    : options(chosen), hits(std::move(on_hit)), flow_reports(std::move(on_flow)), dpi(chosen.use_dpi),
      devices(chosen.most_devices), flows(chosen.most_flows), names(chosen.most_dns_names)
{
    set_catalogue(std::move(catalogue));
}

void classifier::set_catalogue(app_catalogue fresh)
{
    apps = std::move(fresh);
    dpi.set_catalogue(apps);
}

bool classifier::is_device_link(bool is_known, const uint8_t (&mac)[6])
{
    feed_device *device = is_known ? devices.by_link(mac_of(mac)) : nullptr;
    return device && !device->is_router;
}

// Of two outside addresses: a device met before, or the client.
classifier::direction classifier::guess_direction(const ip_packet &ip, const packet &from)
{
    if (devices.find(ip.source))
        return direction::up;
    if (devices.find(ip.destination))
        return direction::down;
    if (opens_connection(ip))
        return direction::up;
    bool source_is_client = ip.source_port >= first_client_port;
    bool destination_is_client = ip.destination_port >= first_client_port;
    if (source_is_client != destination_is_client)
        return source_is_client ? direction::up : direction::down;
    if (is_device_link(from.has_mac, from.mac))
        return direction::up;
    return is_device_link(from.has_to_mac, from.to_mac) ? direction::down : direction::foreign;
}

classifier::direction classifier::direction_of(const ip_packet &ip, const packet &from)
{
    if (is_special(ip.source) || is_special(ip.destination) || is_link_local(ip.source) || is_link_local(ip.destination))
        return direction::local;
    bool from_lan = contains(options.lan, ip.source);
    bool to_lan = contains(options.lan, ip.destination);
    if (from_lan && to_lan)
        return direction::local;
    if (from_lan || to_lan)
        return from_lan ? direction::up : direction::down;
    if (ip.source.family != 6 || !options.guess_ipv6_device)
        return direction::foreign;
    return guess_direction(ip, from);
}

void classifier::learn_link_of(const ip_address &address, const mac_address &mac, uint64_t time_us)
{
    devices.learn_mac(device_for(address, time_us, &mac), mac);
}

void classifier::learn_link(const ip_packet &ip, const packet &from, direction way)
{
    auto is_on_link = [&] { return contains(options.lan, ip.source) || (ip.source.family == 6 && is_link_local(ip.source)); };
    if (from.has_mac && (way == direction::up || (way == direction::local && is_on_link())))
        learn_link_of(ip.source, mac_of(from.mac), from.time_us);
    if (way != direction::down)
        return;
    feed_device *router = from.has_mac ? devices.by_link(mac_of(from.mac)) : nullptr;
    if (router)
        router->is_router = true;
    if (from.has_to_mac)
        learn_link_of(ip.destination, mac_of(from.to_mac), from.time_us);
}

bool classifier::lacks_neighbours()
{
    return std::any_of(devices.all.begin(), devices.all.end(),
                       [&](const feed_device &one) { return devices.is_unjoined(one); });
}

void classifier::learn_neighbour(const ip_address &address, const mac_address &mac, uint64_t time_us)
{
    bool is_wanted = std::any_of(devices.all.begin(), devices.all.end(),
                                 [&](const feed_device &one) { return one.mac == mac && devices.is_unjoined(one); });
    if (is_wanted && contains(options.lan, address))
        learn_link_of(address, mac, time_us);
}

feed_device *classifier::device_for(const ip_address &address, uint64_t time_us, const mac_address *link)
{
    feed_device *device = devices.get(address);
    if (!device) {
        counts[feed_device_table_full]++;
        forget_device(devices.oldest(link));
        device = devices.get(address);
    }
    device->last_us = time_us;
    return device;
}

void classifier::forget_device(feed_device *device)
{
    while (flow *one = flows.at(device->oldest_flow))
        drop_flow(one);
    devices.remove(device);
}

// The device with the most connections gives up its oldest, closed ones first. All addresses behind the newcomer's link address
// are one device in this: many of few connections each would be many otherwise.
void classifier::make_place(feed_device *for_device)
{
    feed_device *busiest = for_device, *busiest_of_link = for_device;
    size_t flows_of_link = 0;
    for (feed_device &device : devices.all) {
        if (device.flows > busiest->flows)
            busiest = &device;
        if (!for_device->has_mac || !device.has_mac || device.mac != for_device->mac)
            continue;
        flows_of_link += device.flows;
        if (device.flows > busiest_of_link->flows)
            busiest_of_link = &device;
    }
    if (flows_of_link > busiest->flows)
        busiest = busiest_of_link;
    counts[feed_flow_table_full]++;
    drop_flow(flows.at(busiest->oldest_flow));
}

flow *classifier::new_flow(const flow_key &key, feed_device *device, uint64_t time_us)
{
    flow *one = flows.add(key, device);
    if (!one) {
        make_place(device);
        one = flows.add(key, device);
    }
    one->first_us = one->last_us = time_us;
    counts[feed_flows]++;
    return one;
}

flow *classifier::flow_for(const flow_key &key, feed_device *device, const ip_packet &ip, direction way, uint64_t time_us)
{
    flow *one = flows.find(key);
    // The same ends again: another connection, unless it is the first packet once more.
    bool again = one && opens_connection(ip) && (one->closed != 0 || one->is_answered);
    if (again) {
        drop_flow(one);
        one = nullptr;
    }
    if (!one) {
        one = new_flow(key, device, time_us);
        one->from_outside = opens_connection(ip) && way == direction::down;
    } else if (one->closed != flow_closed) {
        flows.touch(one);
    }
    one->last_us = time_us;
    return one;
}

void classifier::take_dns(const ip_packet &ip, const packet &from)
{
    byte_view message = ip.payload;
    if (ip.protocol == protocol_tcp) {
        byte_reader reader(message);
        message = reader.take(reader.u16());
    }
    dns_answer answer;
    if (!read_dns_answer(message, &answer))
        return;
    counts[feed_dns_answers]++;
    feed_device *asked = devices.find(ip.destination);
    names.remember(asked ? devices.told_as(asked)->address : ip.destination, answer, from.time_us);
}

void classifier::take(const packet &from)
{
    counts[feed_packets]++;
    advance(from.time_us);
    ip_packet ip;
    switch (read_ip_packet(from, &ip)) {
    case ip_outcome::malformed:
        counts[feed_packets_malformed]++;
        return;
    case ip_outcome::fragment:
        counts[feed_packets_fragment]++;
        return;
    case ip_outcome::other:
        counts[feed_packets_other]++;
        return;
    case ip_outcome::tcp_or_udp:
        break;
    }
    direction way = direction_of(ip, from);
    // Also of a resolver within the LAN, whose IPv6 address may be of another network than the device's.
    if (ip.source_port == dns_port && ip.payload.size > 0 && way != direction::foreign)
        take_dns(ip, from);
    learn_link(ip, from, way);
    if (way == direction::local || way == direction::foreign) {
        counts[way == direction::local ? feed_packets_local : feed_packets_foreign]++;
        return;
    }
    flow_key key{ip.source, ip.destination, ip.source_port, ip.destination_port, ip.protocol};
    if (way == direction::down) {
        std::swap(key.device, key.server);
        std::swap(key.device_port, key.server_port);
    }
    feed_device *device = device_for(key.device, from.time_us);
    flow *one = flow_for(key, device, ip, way, from.time_us);
    note_packet(one, ip, way);
    if (!one->is_decided)
        inspect(one, ip, way, from.time_us);
    credit(one);
}

void classifier::note_packet(flow *one, const ip_packet &ip, direction way)
{
    one->packets++;
    bool is_up = way == direction::up;
    if (options.count_packets) {
        (is_up ? one->up : one->down) += ip.bytes;
        (is_up ? one->waiting_up : one->waiting_down) += ip.bytes;
    }
    one->is_answered |= !is_up && ip.payload_bytes > 0;
    one->has_payload |= ip.payload_bytes > 0;
    if (is_up && (ip.tcp_flags & tcp_syn)) {
        one->has_syn = true;
        one->syn_sequence = ip.sequence;
    }
    if (ip.tcp_flags & tcp_rst)
        one->closed = flow_closed;
    if (ip.tcp_flags & tcp_fin)
        one->closed = static_cast<uint8_t>(one->closed | (is_up ? flow_closed_by_device : flow_closed_by_server));
}

void classifier::count_flow(const flow_key &key, const flow_count &count, uint64_t time_us)
{
    advance(time_us);
    flow *one = flows.find(key);
    if (!one) {
        // Its first packets were not seen. Connections that never carried anything need no record.
        if (count.up_bytes == 0 || count.down_bytes == 0)
            return;
        one = new_flow(key, device_for(key.device, time_us), time_us);
        one->from_outside = count.began_outside;
        one->has_payload = one->is_answered = true;
        one->tracked_us = time_us;
        // What it moved before is of unknown age.
        one->up = count.up_bytes;
        one->down = count.down_bytes;
        give_up(one);
        return;
    }
    // Of UDP the packets do not say which end began.
    if (one->tracked_us == 0)
        one->from_outside = count.began_outside;
    one->tracked_us = time_us;
    if (options.packets_shown > 0 && count.packets >= options.packets_shown && one->last_us + longest_delay_us <= time_us) {
        give_up(one);
        credit(one);
    }
    // Smaller counters are those of another connection between the same ends.
    bool restarted = count.up_bytes < one->up || count.down_bytes < one->down;
    uint64_t up = restarted ? count.up_bytes : count.up_bytes - one->up;
    uint64_t down = restarted ? count.down_bytes : count.down_bytes - one->down;
    if (up + down == 0)
        return;
    one->up = count.up_bytes;
    one->down = count.down_bytes;
    one->waiting_up += up;
    one->waiting_down += down;
    one->last_us = time_us;
    one->device->last_us = time_us;
    flows.touch(one);
    credit(one);
}

// Without this the connections that ended unseen, of which only the first packets were shown, would fill the table.
void classifier::end_count(uint64_t time_us)
{
    for (flow &one : flows.records)
        if (one.device && std::max(one.tracked_us, one.last_us) + untracked_us < time_us)
            drop_flow(&one);
}
