#include "feed/device_table.h"

#include <string.h>

namespace {

uint64_t mac_key(const mac_address &mac)
{
    uint64_t key = 0;
    memcpy(&key, mac.data(), mac.size());
    return key;
}

} // namespace

feed_device *device_table::find(const ip_address &address)
{
    auto known = by_address.find(address);
    return known == by_address.end() ? nullptr : known->second;
}

feed_device *device_table::get(const ip_address &address)
{
    if (feed_device *known = find(address))
        return known;
    feed_device *place = nullptr;
    if (all.size() < limit)
        place = &all.emplace_back();
    for (size_t i = 0; i < all.size() && !place; i++)
        if (all[i].address.family == 0)
            place = &all[i];
    if (!place)
        return nullptr;
    *place = feed_device{};
    place->address = address;
    by_address[address] = place;
    return place;
}

feed_device *device_table::oldest(const mac_address *link)
{
    feed_device *found = nullptr, *found_of_link = nullptr;
    for (feed_device &device : all) {
        if (device.address.family == 0)
            continue;
        if (!found || device.last_us < found->last_us)
            found = &device;
        bool is_of_link = link && device.has_mac && device.mac == *link && !device.owns_mac;
        if (is_of_link && (!found_of_link || device.last_us < found_of_link->last_us))
            found_of_link = &device;
    }
    return found_of_link ? found_of_link : found;
}

void device_table::remove(feed_device *device)
{
    by_address.erase(device->address);
    if (device->owns_mac)
        by_mac.erase(mac_key(device->mac));
    *device = feed_device{};
}

void device_table::learn_mac(feed_device *device, const mac_address &mac)
{
    bool is_known = device->has_mac && device->mac == mac;
    if (is_known && (device->owns_mac || device->address.family != 4))
        return;
    if (device->owns_mac)
        by_mac.erase(mac_key(device->mac));
    device->has_mac = true;
    device->mac = mac;
    if (device->address.family != 4)
        return;
    feed_device *&owner = by_mac[mac_key(mac)];
    if (owner)
        owner->owns_mac = false;
    owner = device;
    device->owns_mac = true;
}

feed_device *device_table::by_link(const mac_address &mac)
{
    auto known = by_mac.find(mac_key(mac));
    return known == by_mac.end() ? nullptr : known->second;
}

feed_device *device_table::told_as(feed_device *device)
{
    if (device->address.family == 4 || !device->has_mac)
        return device;
    feed_device *owner = by_link(device->mac);
    return owner ? owner : device;
}
