#include "appident/settings/payment_settings.h"

#include "appident/model/device_list.h"
#include "appident/model/payment_types.h"
#include "appident/router/device_service.h"
#include "appident/settings/config_file.h"
#include "appident/settings/json_fields.h"
#include "common/log.h"
#include "igd/igd_lib.h"

#include <string.h>

namespace {

struct pay_switches {
    int enable;
    int types[payment_types]; // in the order of the payment sets
};

void set_slot(device_record *dev, int slot, uint8_t onoff)
{
    payment_set &set = dev->pay_sets[slot];
    set.pay_type = payment_type_rows[slot].app_id;
    set.app_id = set.pay_type;
    set.onoff = onoff;
    set.last_alert_time = 0;
}

void drop_pending_rules(device_record *dev)
{
    for (payment_set &set : dev->pay_sets) {
        clear_payment_rule_list(&set.pay_rule_list_head);
        INIT_LIST_HEAD(&set.pay_rule_list_head);
    }
}

// A device that nobody has set up yet is watched for everything.
void apply_defaults(device_record *dev)
{
    dev->payment_onoff = 1;
    for (int slot = 0; slot < payment_types; ++slot)
        set_slot(dev, slot, 1);
    drop_pending_rules(dev);
    save_device_pay_config(dev->mac, 1, 1, 1, 1, 1);
}

void apply_stored(device_record *dev, const cJSON *payment)
{
    u32 value = 0;
    if (number_member(payment, payment_enable_key, UINT8_MAX, &value))
        dev->payment_onoff = static_cast<uint8_t>(value);
    for (int slot = 0; slot < payment_types; ++slot) {
        const payment_type_row &type = payment_type_rows[slot];
        if (type.app_id == APPLE_PAY)
            set_slot(dev, slot, 1); // always on: its stored switch is only for the household to see, and nothing alerts for it
        else if (number_member(payment, type.config_key, UINT8_MAX, &value))
            set_slot(dev, slot, static_cast<uint8_t>(value));
    }
    drop_pending_rules(dev);
}

void switch_record(const char *mac_str, const pay_switches &wanted)
{
    for (device_record *dev = tracked_device(mac_str); dev; dev = next_of_same_mac(dev)) {
        if (dev->device_state == device_listed)
            continue;
        dev->payment_onoff = static_cast<uint8_t>(wanted.enable);
        for (int slot = 0; slot < payment_types; ++slot)
            dev->pay_sets[slot].onoff = static_cast<uint8_t>(wanted.types[slot]);
        return;
    }
}

bool put_switch(cJSON *payment, const char *key, int value)
{
    cJSON *stored = cJSON_GetObjectItem(payment, key);
    if (!cJSON_IsNumber(stored))
        return put_member(payment, key, cJSON_CreateNumber(value));
    cJSON_SetNumberHelper(stored, value);
    return true;
}

bool put_switches(cJSON *root, const pay_switches &wanted)
{
    cJSON *payment = object_member(root, "payment");
    if (!payment) {
        payment = cJSON_CreateObject();
        if (!put_member(root, "payment", payment))
            return false;
    }
    bool complete = put_switch(payment, payment_enable_key, wanted.enable);
    for (int slot = 0; slot < payment_types; ++slot)
        complete = complete && put_switch(payment, payment_type_rows[slot].config_key, wanted.types[slot]);
    return complete;
}

int write_switches(cJSON *root, const char *path, const pay_switches &wanted)
{
    if (!put_switches(root, wanted))
        return -1;
    heap_text text(cJSON_PrintUnformatted(root));
    return text ? write_config_file(path, text.get()) : -1;
}

int create_pay_config(const char *mac_str, const char *path, const pay_switches &wanted)
{
    json_tree root(cJSON_CreateObject());
    if (!put_member(root.get(), "device", cJSON_CreateString(mac_str)))
        return -1;
    return write_switches(root.get(), path, wanted);
}

} // namespace

int update_device_pay_config(const char *mac_str, int enable, int weixin, int alipay, int qqpay, int applepay, const char *path)
{
    if (!mac_str || !path)
        return -1;
    const pay_switches wanted = {enable, {weixin, alipay, qqpay, applepay}};
    switch_record(mac_str, wanted);
    cJSON *loaded = nullptr;
    if (load_config(mac_str, &loaded) != 0)
        return -1;
    json_tree root(loaded);
    if (!config_is_of(root.get(), mac_str) || write_switches(root.get(), path, wanted) != 0)
        return -1;
    url_check_log(0, "[app_ident] update_device_pay_config -> ok!");
    return 0;
}

bool keeps_no_settings(const char *mac_str)
{
    if (get_device_role(mac_str) != 0)
        return false;
    url_check_log(0, "[main] %s  save_device_pay_config -> rolo=0 dont save_config and load_device_config ", mac_str);
    return true;
}

pay_stored store_pay_config(const char *mac_str, int enable, int weixin, int alipay, int qqpay, int applepay)
{
    config_path path;
    if (!make_config_path(mac_str, &path))
        return {-1, false};
    url_check_log(0, "[app_ident] save_device_pay_config %s -> cfg_path: %s", mac_str, path.text);
    url_check_log(0, "[app_ident] save_device_pay_config weixin:%d, alipay:%d, qqpay:%d, applepay:%d", weixin, alipay, qqpay,
                  applepay);
    if (access(path.text, F_OK) == 0)
        return {update_device_pay_config(mac_str, enable, weixin, alipay, qqpay, applepay, path.text), true};
    bool created = create_pay_config(mac_str, path.text, {enable, {weixin, alipay, qqpay, applepay}}) == 0;
    return {created ? 0 : -1, created};
}

int save_device_pay_config(const char *mac_str, int enable, int weixin, int alipay, int qqpay, int applepay)
{
    if (!mac_str)
        return -1;
    if (keeps_no_settings(mac_str))
        return 0;
    pay_stored stored = store_pay_config(mac_str, enable, weixin, alipay, qqpay, applepay);
    if (stored.to_commit)
        save_param();
    return stored.result;
}

int load_device_pay_config(device_record *dev)
{
    if (!dev)
        return -1;
    cJSON *loaded = nullptr;
    if (load_config(dev->mac, &loaded) != 0) {
        int role = get_device_role(dev->mac);
        if (role < 1)
            url_check_log(0, "[app_ident] [%s] load_device_pay_config -> error 2, role = %d", dev->mac, role);
        else
            apply_defaults(dev);
        return -1;
    }
    json_tree root(loaded);
    if (!config_is_of(root.get(), dev->mac))
        return -1;
    const cJSON *payment = object_member(root.get(), "payment");
    if (!payment) {
        apply_defaults(dev);
        return 0;
    }
    url_check_log(0, "[app_ident] load_device_pay_config -> payment config");
    apply_stored(dev, payment);
    return 0;
}
