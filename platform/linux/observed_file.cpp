#include "platform/linux/observed_file.h"

#include "common/mac_text.h"
#include "platform/linux/client/json_text.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/directories.h"
#include "platform/linux/observed.h"
#include "platform/linux/platform_counters.h"
#include "platform/linux/replace_file.h"
#include "platform/linux/roster.h"
#include "platform/linux/text_builder.h"

#include <arpa/inet.h>
#include <string.h>

namespace {

// Seconds.
constexpr u64 settle = 30; // who comes alone seldom stays alone
constexpr u64 save_every = 600;
constexpr u64 save_moments_every = 6 * 3600;

pthread_once_t loaded = PTHREAD_ONCE_INIT;

// With observed_lock held.
bool news = false;
u64 news_since = 0;
u64 saved = 0; // moment of the last writing, or of the start
bool ever_saved = false;
bool roster_noted = false;

const char *text_of(const cJSON *object, const char *key)
{
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, key));
    return text ? text : "";
}

void take_device(const cJSON *entry)
{
    unsigned char mac[6];
    observed_device *device = read_mac_text(text_of(entry, "mac"), mac) ? observed_make(mac) : nullptr;
    if (!device)
        return;
    in_addr address = {};
    if (inet_pton(AF_INET, text_of(entry, "address"), &address) == 1)
        device->ip = address.s_addr;
    if (is_device_name(text_of(entry, "name")))
        copy_device_name(text_of(entry, "name"), device->lease);
    const cJSON *seen = cJSON_GetObjectItemCaseSensitive(entry, "seen");
    if (cJSON_IsNumber(seen) && seen->valuedouble > 0 && seen->valuedouble < 1e11)
        device->seen_before = static_cast<time_t>(seen->valuedouble);
}

void load()
{
    char path[state_path_size];
    state_path(path, "observed.json");
    text_file file = read_text_file(path, json_text_limit);
    mutex_guard held(observed_lock);
    saved = uptime_second();
    if (file.outcome == file_missing)
        return;
    json_tree root(file.text ? parse_json_text(file.text.get()) : nullptr);
    const cJSON *roster = cJSON_GetObjectItemCaseSensitive(root.get(), "roster");
    roster_noted = cJSON_IsTrue(roster);
    // What cannot be read may have told of a roster.
    if (roster_noted || !root)
        roster_expect();
    if (!root)
        count_platform(platform_observed_unreadable);
    const cJSON *entry = nullptr;
    cJSON_ArrayForEach(entry, cJSON_GetObjectItemCaseSensitive(root.get(), "devices")) {
        take_device(entry);
    }
}

void append_device(text_builder *text, const observed_device &device, bool first)
{
    char mac[mac_text_size], address[INET_ADDRSTRLEN] = "";
    write_mac_text(device.mac, mac);
    in_addr ip = {device.ip};
    if (device.ip != 0)
        inet_ntop(AF_INET, &ip, address, sizeof(address));
    append_text(text, "%s\n{\"mac\":\"%s\",\"address\":\"%s\",\"name\":", first ? "" : ",", mac, address);
    append_json_text(text, device.lease);
    append_text(text, ",\"seen\":%lld}", static_cast<long long>(observed_last_seen(device)));
}

heap_text whole_text(bool has_roster)
{
    text_builder text = {};
    append_text(&text, "{\"roster\":%s,\"devices\":[", has_roster ? "true" : "false");
    for (int i = 0; i < observed_count(); ++i)
        append_device(&text, *observed_at(i), i == 0);
    append_text(&text, "]}\n");
    return take_text(&text);
}

bool due(u64 now, bool has_roster)
{
    if (has_roster && !roster_noted)
        return true;
    if (news && now - news_since >= settle && (!ever_saved || now - saved >= save_every))
        return true;
    return now - saved >= save_moments_every;
}

} // namespace

void observed_load()
{
    pthread_once(&loaded, load);
}

void observed_file_news()
{
    if (!news)
        news_since = uptime_second();
    news = true;
}

void observed_save_when_due(u64 now)
{
    bool has_roster = roster_look() != roster_never_made;
    heap_text text;
    {
        mutex_guard held(observed_lock);
        if (!due(now, has_roster))
            return;
        text = whole_text(has_roster);
        news = false;
        saved = now;
        ever_saved = true;
        roster_noted = has_roster;
    }
    char path[state_path_size];
    state_path(path, "observed.json");
    if (!text || !make_directory(settings().state_dir, 0755) || !replace_file(path, text.get()))
        count_platform(platform_observed_unwritten);
}
