#include "appident/pushes/push_channel.h"

#include "appident/router/device_service.h"
#include "common/counters.h"
#include "common/log.h"
#include "igd/igd_lib.h"

#include <stdio.h>
#include <string.h>

namespace {

std::atomic<bool> pushed_since_noted{false};

} // namespace

bool is_excluded_app(u32 app_id)
{
    // Not 303 and 312: Apple Pay is reported as an app, and 312 belongs to no payment.
    static constexpr u32 excluded[] = {WECHAT_PAY, ALI_PAY, QQ_PAY, 310, 311, 313};
    for (u32 id : excluded) {
        if (id == app_id)
            return true;
    }
    return false;
}

int my_push(int type, const char *data, unsigned long occur_time)
{
    int result = new_push_msg(type, data, occur_time);
    if (result < 0) {
        count(counter_pushes_failed);
    } else {
        count(counter_pushes);
        pushed_since_noted = true;
    }
    return result;
}

void note_push_time(u32 now)
{
    if (pushed_since_noted.exchange(false))
        set_counter(counter_last_push_time, now);
}

int get_folk_id(const unsigned char *mac_bytes)
{
    int home = 0;
    int group = 0;
    if (get_group_by_mac(mac_bytes, &home, &group) < 0) {
        url_check_log(0, "[appident] get_folk_id->get_group_by_mac failed!!!");
        return -1;
    }
    return group;
}

int shown_role(const char *mac_str)
{
    int role = get_device_role(mac_str);
    return role < 0 ? 0 : role;
}

void add_text(cJSON *object, const char *key, const char *value)
{
    cJSON_AddStringToObject(object, key, value);
}

void add_u32(cJSON *object, const char *key, u32 value)
{
    char text[40];
    snprintf(text, sizeof(text), "%u", value);
    add_text(object, key, text);
}

void add_u64(cJSON *object, const char *key, u64 value)
{
    char text[40];
    snprintf(text, sizeof(text), "%llu", static_cast<unsigned long long>(value));
    add_text(object, key, text);
}

void add_int(cJSON *object, const char *key, int value)
{
    char text[40];
    snprintf(text, sizeof(text), "%d", value);
    add_text(object, key, text);
}

json_tree begin_object(const device_record &dev)
{
    json_tree object(cJSON_CreateObject());
    if (object)
        add_text(object.get(), "endmac", dev.mac);
    else
        count(counter_no_memory);
    return object;
}

void end_object(cJSON *object, const device_record &dev)
{
    add_int(object, "folk_id", get_folk_id(dev.mac_bytes));
}

json_tree begin_named_object(const device_record &dev, device_alias *alias)
{
    json_tree object = begin_object(dev);
    if (!object)
        return object;
    constexpr int name_of_mac = 4;
    nos_hostname_cfg host = {};
    host.action = name_of_mac;
    memcpy(host.mac, dev.mac_bytes, sizeof(host.mac));
    nos_hostname_action(&host);
    static_assert(sizeof(host.s_name) == sizeof(device_alias::text), "an alias is a host's short name");
    memcpy(alias->text, host.s_name, sizeof(alias->text));
    alias->text[sizeof(alias->text) - 1] = '\0';
    add_text(object.get(), "alias", alias->text);
    return object;
}

heap_text end_and_print(cJSON *object, const device_record &dev)
{
    end_object(object, dev);
    heap_text text(cJSON_PrintUnformatted(object));
    if (!text)
        count(counter_no_memory);
    return text;
}
