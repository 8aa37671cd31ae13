#include "home/mqtt.h"

#include "home/device_limits.h"
#include "home/mqtt_entities.h"
#include "home/mqtt_pushes.h"
#include "home/mqtt_words.h"
#include "home/notices.h"
#include "home/serve.h"

#include <algorithm>
#include <random>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

struct mqtt {
    household *home = nullptr;
    mqtt_settings settings;
    std::string base; // PREFIX/ID
    mqtt_link *link = nullptr;
    mqtt_entities entities;
    mqtt_pushes pushes;
    notice_way alerts;
    int64_t alert = 0;     // being told
    int alert_message = 0; // its number, 0 for none
    bool alerts_wanted = true;
    int64_t changes = 0, changes_since_ms = 0; // of limits
};

namespace {

constexpr size_t mac_length = 17;
constexpr int64_t changes_most = 30, changes_window_ms = 60000;

void when_up(void *context)
{
    mqtt *all = static_cast<mqtt *>(context);
    publish(all->link, all->base + "/availability", "online", true);
    if (all->settings.discovery) {
        subscribe(all->link, all->settings.discovery_prefix + "/status");
        subscribe(all->link, all->base + "/+/state");
        tell_all_again(&all->entities);
    }
    if (all->settings.limits)
        subscribe(all->link, all->base + "/+/limits/+/+/set");
}

void when_acknowledged(void *context, int message)
{
    mqtt *all = static_cast<mqtt *>(context);
    if (all->settings.pushes && push_acknowledged(&all->pushes, message))
        return;
    if (message != all->alert_message)
        return;
    end_alert(&all->alerts, all->alert, &notice_counts::told);
    all->alert_message = 0;
    all->alerts_wanted = true;
}

// Whoever sends more must wait: each costs the daemon and the database a write.
bool too_many_changes(mqtt *all)
{
    int64_t now = uptime_ms();
    if (now - all->changes_since_ms > changes_window_ms) {
        all->changes_since_ms = now;
        all->changes = 0;
    }
    return ++all->changes > changes_most;
}

// "minutes/set" with 1 to 1440, or "on/set" with ON or OFF.
bool read_limit(const std::string &what, const std::string &text, known_limit *limit)
{
    if (what == "on/set" && (text == "ON" || text == "OFF")) {
        limit->on = text == "ON";
        return true;
    }
    char *end = nullptr;
    long minutes = strtol(text.c_str(), &end, 10);
    bool whole = !text.empty() && text.size() <= 8 && (*end == 0 || std::string(end) == ".0");
    if (what != "minutes/set" || !whole || minutes < 1 || minutes > limit_minutes_most)
        return false;
    limit->minutes = minutes;
    return true;
}

void take_limit(mqtt *all, const std::string &mac, const std::string &topic, const std::string &text)
{
    household *home = all->home;
    auto known = home->limits.find(mac);
    size_t slash = topic.find('/');
    if (known == home->limits.end() || slash == std::string::npos || too_many_changes(all))
        return;
    for (const mqtt_class &kind : mqtt_classes) {
        if (!kind.has_minutes || topic.compare(0, slash, kind.key) != 0)
            continue;
        auto limit = known->second.find(kind.number);
        limit_change change = {mac, kind.number, {false, 0}, "MQTT", all->settings.host};
        if (limit != known->second.end())
            change.to = limit->second;
        if (change.to.minutes < 1)
            change.to.minutes = limit_minutes_usual;
        if (read_limit(topic.substr(slash + 1), text, &change.to) && !change_limit(home, change))
            fputs("appident-home: mqtt: a limit could not be changed\n", stderr);
    }
    // Shown as it is now, also where it was refused.
    all->entities.told[mac].limits = 0;
    all->entities.wanted = true;
}

bool is_mac(const std::string &text)
{
    return text.size() == mac_length && text.find_first_not_of("0123456789ABCDEF-") == std::string::npos;
}

void when_heard(void *context, const std::string &topic, const std::string &text, bool retained)
{
    mqtt *all = static_cast<mqtt *>(context);
    if (topic == all->settings.discovery_prefix + "/status") {
        if (text == "online" && !retained)
            tell_all_again(&all->entities);
        return;
    }
    size_t begin = all->base.size() + 1;
    if (topic.compare(0, begin, all->base + "/") != 0 || topic.size() < begin + mac_length + 2)
        return;
    std::string mac = topic.substr(begin, mac_length), rest = topic.substr(begin + mac_length);
    constexpr const char *limits = "/limits/";
    if (!is_mac(mac))
        return;
    // What the broker has kept tells of devices that were forgotten while we were away.
    if (rest == "/state" && retained && !text.empty())
        note_told(&all->entities, mac);
    else if (all->settings.limits && !retained && rest.compare(0, strlen(limits), limits) == 0)
        take_limit(all, mac, rest.substr(strlen(limits)), text);
}

// One at a time; what is late is no event any more.
void send_alert(mqtt *all)
{
    alert_row alert;
    int64_t now = time(nullptr);
    while (all->alerts_wanted && all->alert_message == 0 && is_up(all->link)) {
        all->alerts_wanted = next_alert(&all->alerts, now, &alert);
        if (!all->alerts_wanted)
            return;
        if (alert.time + notice_late_after < now) {
            end_alert(&all->alerts, alert.id, &notice_counts::skipped);
            continue;
        }
        json_tree facts = alert_json(all->home, alert, now);
        cJSON_AddStringToObject(facts.get(), "event_type", cJSON_GetStringValue(cJSON_GetObjectItem(facts.get(), "kind")));
        heap_text text(cJSON_PrintUnformatted(facts.get()));
        std::string mac = cJSON_GetStringValue(cJSON_GetObjectItem(facts.get(), "device"));
        all->alert = alert.id;
        all->alert_message = text ? publish(all->link, all->base + "/" + mac + "/alert", text.get(), false) : 0;
        if (all->alert_message == 0)
            end_alert(&all->alerts, alert.id, &notice_counts::failed);
    }
}

size_t prepare(void *state, pollfd *slots, size_t room, int64_t now_ms, int64_t *wake_ms)
{
    mqtt *all = static_cast<mqtt *>(state);
    loop_part link = mqtt_link_part(all->link);
    size_t used = link.prepare(link.state, slots, room, now_ms, wake_ms);
    if (!is_up(all->link))
        return used;
    if (all->settings.discovery && all->entities.wanted)
        *wake_ms = std::min(*wake_ms, all->entities.next_ms);
    if (all->settings.pushes && can_send(all->pushes))
        *wake_ms = std::min(*wake_ms, all->pushes.next_look_ms);
    if (all->alerts_wanted && all->alert_message == 0)
        *wake_ms = now_ms;
    return used;
}

void serve_mqtt(void *state, const pollfd *slots, size_t used, int64_t now_ms)
{
    mqtt *all = static_cast<mqtt *>(state);
    loop_part link = mqtt_link_part(all->link);
    link.serve(link.state, slots, used, now_ms);
    send_alert(all);
    if (all->settings.discovery)
        send_entities(&all->entities, now_ms);
    if (all->settings.pushes)
        send_pushes(&all->pushes, now_ms);
}

void when_told(void *context, const fact &news)
{
    mqtt *all = static_cast<mqtt *>(context);
    if (news.kind == fact_alert)
        all->alerts_wanted = true;
    else if (news.kind == fact_line)
        all->pushes.next_look_ms = 0;
    else
        all->entities.wanted = true;
}

// Of this router: as set, or drawn once and kept.
std::string router_id(household *home, const mqtt_settings &settings)
{
    constexpr const char *key = "mqtt.id";
    std::string id = settings.id.empty() ? meta_text(&home->all.db, key) : settings.id;
    if (id.empty()) {
        std::random_device random;
        char drawn[16];
        snprintf(drawn, sizeof(drawn), "%04x%08x", random() & 0xffff, random());
        id = drawn;
        set_meta(&home->all.db, key, id);
    }
    return id;
}

} // namespace

mqtt *begin_mqtt(household *home, const mqtt_settings &settings)
{
    if (!settings.on || !settings.pushes)
        forget_pushes_place(home);
    if (!settings.on) {
        forget_way(home, "mqtt");
        return nullptr;
    }
    mqtt *all = new mqtt;
    all->home = home;
    all->settings = settings;
    std::string id = router_id(home, settings);
    all->base = settings.prefix + "/" + id;
    all->link =
        open_mqtt_link(settings, "appident-" + id, all->base + "/availability", {when_up, when_acknowledged, when_heard, all});
    if (!all->link) {
        delete all;
        return nullptr;
    }
    begin_way(&all->alerts, "mqtt", &all->settings.kinds, home);
    begin_entities(&all->entities, home, all->link, &all->settings, all->base);
    u32 kinds = fact_bit(fact_alert);
    if (settings.discovery)
        kinds |= fact_bit(fact_session) | fact_bit(fact_device) | fact_bit(fact_now);
    if (settings.pushes) {
        begin_pushes(&all->pushes, home, all->link, all->base + "/push");
        kinds |= fact_bit(fact_line);
    }
    home->all.listeners.push_back({kinds, when_told, all});
    return all;
}

void end_mqtt(mqtt *all)
{
    if (!all)
        return;
    if (all->settings.pushes)
        end_pushes(&all->pushes);
    close_mqtt_link(all->link);
    delete all;
}

loop_part mqtt_part(mqtt *all)
{
    return {prepare, serve_mqtt, all};
}

mqtt_health health_of(const mqtt *all)
{
    return {is_up(all->link), all->pushes.passed_on, static_cast<int64_t>(all->pushes.sent.size()), all->pushes.breaks};
}
