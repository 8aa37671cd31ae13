#include "platform/linux/library_requests.h"

#include "common/mac_text.h"
#include "platform/linux/client/json_text.h"
#include "platform/linux/client/request_protocol.h"
#include "platform/linux/devices.h"
#include "platform/linux/host_messages.h"
#include "platform/linux/lan_choice.h"
#include "platform/linux/observed.h"
#include "platform/linux/roster.h"
#include "platform/linux/roster_edit.h"
#include "platform/linux/text_builder.h"

#include <arpa/inet.h>
#include <string.h>
#include <utility>

namespace {

constexpr size_t input_limit = 4096;
constexpr size_t longest_device = 512;
constexpr int role_most = 2;

const char *true_or_false(bool value)
{
    return value ? "true" : "false";
}

void append_device(text_builder *text, const known_device &device, bool first)
{
    constexpr const char *name_sources[] = {"person", "lease", "none"};
    char mac[mac_text_size], address[INET6_ADDRSTRLEN] = "";
    write_mac_text(device.mac, mac);
    in_addr ip = {device.ip};
    if (device.ip != 0)
        inet_ntop(AF_INET, &ip, address, sizeof(address));
    else if (!IN6_IS_ADDR_UNSPECIFIED(&device.ip6))
        inet_ntop(AF_INET6, &device.ip6, address, sizeof(address));
    append_text(text, "%s{\"mac\":\"%s\",\"name\":", first ? "" : ",", mac);
    append_json_text(text, device.name);
    append_text(text, ",\"name_from\":\"%s\",\"address\":\"%s\"", name_sources[device.name_from], address);
    if (device.role != role_unclear)
        append_text(text, ",\"role\":%d", device.role);
    append_text(text, ",\"role_from\":\"%s\",\"on_line\":%s,\"on_line_since\":%lld,\"away\":%s,\"last_seen\":%lld",
                device.role_given ? "person" : "default", true_or_false(device.on_line),
                static_cast<long long>(device.on_line_since), true_or_false(device.away),
                static_cast<long long>(device.last_seen));
    // Such a MAC was drawn, not given by a maker; a phone draws one for each network.
    append_text(text, ",\"private_mac\":%s}", true_or_false((device.mac[0] & 2) != 0));
}

void append_lan(text_builder *text)
{
    lan_choice lan = chosen_lan();
    append_text(text, "{\"lan\":{\"interface\":");
    append_json_text(text, lan.interface);
    append_text(text, ",\"why\":");
    append_json_text(text, lan.why);
    append_text(text, "},\"devices\":[");
}

// The MAC to go on behind; false when the input makes no sense.
bool read_after(const char *text, unsigned char (&mac)[6], bool *has_mac)
{
    *has_mac = false;
    if (!*text)
        return true;
    json_tree input(parse_json_text(text, input_limit));
    const cJSON *after = cJSON_GetObjectItemCaseSensitive(input.get(), "after");
    if (!cJSON_IsObject(input.get()) || (after && !cJSON_IsString(after)))
        return false;
    *has_mac = after != nullptr;
    return !after || read_mac_text(after->valuestring, mac);
}

// As many devices as fit a packet, and whether there are more.
int list_devices(const char *input, heap_text *answer)
{
    unsigned char mac[6];
    bool has_mac = false;
    if (!read_after(input, mac, &has_mac) || !devices_available())
        return -1;
    text_builder text = {};
    append_lan(&text);
    known_device device = {};
    const unsigned char *after = has_mac ? mac : nullptr;
    bool first = true, more = false;
    while (device_next(after, &device)) {
        more = text.length + longest_device > request_text_limit;
        if (more)
            break;
        append_device(&text, device, first);
        first = false;
        after = device.mac;
    }
    append_text(&text, "],\"more\":%s}", true_or_false(more));
    *answer = take_text(&text);
    return *answer ? 0 : -1;
}

bool read_change(const char *text, roster_change *out)
{
    *out = {};
    json_tree input(parse_json_text(text, input_limit));
    const cJSON *mac = cJSON_GetObjectItemCaseSensitive(input.get(), "mac");
    const cJSON *name = cJSON_GetObjectItemCaseSensitive(input.get(), "name");
    const cJSON *role = cJSON_GetObjectItemCaseSensitive(input.get(), "role");
    if (!cJSON_IsString(mac) || !read_mac_text(mac->valuestring, out->mac) || (out->mac[0] & 1))
        return false;
    out->has_name = name != nullptr;
    if (name && (!cJSON_IsString(name) || (*name->valuestring && !is_device_name(name->valuestring))))
        return false;
    if (name)
        copy_device_name(name->valuestring, out->name);
    out->has_role = role != nullptr;
    if (role && (!cJSON_IsNumber(role) || role->valuedouble < 0 || role->valuedouble > role_most ||
                 role->valuedouble != static_cast<int>(role->valuedouble)))
        return false;
    out->role = role ? static_cast<int>(role->valuedouble) : role_none;
    return name || role;
}

int change_device(const char *input, heap_text *)
{
    roster_change change;
    if (!read_change(input, &change) || !devices_available() || !change_roster(change))
        return -1;
    // A device whose presence the roster fixes is not followed by presence.cpp.
    roster_device written;
    bool readable = roster_look() == roster_readable;
    if (change.has_role && readable && roster_find(change.mac, &written) && written.presence == presence_on) {
        mutex_guard held(observed_lock);
        tell_on_line(change.mac, 0);
    }
    return 0;
}

constexpr struct {
    u32 id;
    int (*answer)(const char *input, heap_text *answer);
} requests[] = {
    {request_list_devices, list_devices},
    {request_change_device, change_device},
};

} // namespace

int library_request(u32 id, const char *text, heap_text *answer)
{
    for (const auto &request : requests)
        if (request.id == id)
            return request.answer(text, answer);
    return -1;
}
