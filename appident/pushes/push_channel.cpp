#include "appident/pushes/push_channel.h"

#include "appident/router/device_service.h"
#include "common/counters.h"
#include "common/log.h"
#include "igd/igd_lib.h"

#include <stdio.h>
#include <string.h>

bool is_excluded_app(u32 app_id)
{
    // 303 and 312 are not among them, on purpose.
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
        set_counter(counter_last_push_time, wall_clock());
    }
    return result;
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

device_alias get_alias(const device_record &dev)
{
    constexpr int name_of_mac = 4;
    nos_hostname_cfg host = {};
    host.action = name_of_mac;
    memcpy(host.mac, dev.mac_bytes, sizeof(host.mac));
    nos_hostname_action(&host);
    static_assert(sizeof(host.s_name) == sizeof(device_alias::text), "an alias is a host's short name");
    device_alias alias;
    memcpy(alias.text, host.s_name, sizeof(alias.text));
    alias.text[sizeof(alias.text) - 1] = '\0';
    return alias;
}

json_tree begin_push(const device_record &dev, const device_alias *alias)
{
    json_tree object(cJSON_CreateObject());
    if (!object) {
        count(counter_no_memory);
        return object;
    }
    add_text(object.get(), "endmac", dev.mac);
    if (alias)
        add_text(object.get(), "alias", alias->text);
    return object;
}

void end_push(cJSON *object, const device_record &dev)
{
    add_int(object, "folk_id", get_folk_id(dev.mac_bytes));
}

int send_push(push_code code, const cJSON *tree, unsigned long occur_time, heap_text *text)
{
    text->reset(cJSON_PrintUnformatted(tree));
    if (!*text) {
        count(counter_no_memory);
        return -1;
    }
    return my_push(code, text->get(), occur_time);
}
