#include "appident/requests/settings_requests.h"

#include "appident/model/device_list.h"
#include "appident/model/payment_types.h"
#include "appident/router/device_service.h"
#include "appident/settings/config_file.h"
#include "appident/settings/json_fields.h"
#include "appident/settings/payment_settings.h"
#include "appident/settings/use_time_limits.h"
#include "appident/tracking/device_registry.h"
#include "appident/tracking/offline.h"
#include "common/log.h"
#include "igd/igd_lib.h"

#include <stdio.h>
#include <string.h>

int save_config(const char *mac_str, const char *config)
{
    if (!mac_str || !config)
        return -1;
    config_path path;
    if (!make_config_path(mac_str, &path)) {
        url_check_log(0, "[app_ident] save_config ->get_config_path error 2");
        return -1;
    }
    int result = 0;
    {
        mutex_guard lock(device_apps_mtx);
        if (access(path.text, F_OK) == 0) {
            result = update_config(mac_str, config, path.text);
        } else if (write_config_file(path.text, config) != 0) {
            url_check_log(0, "[app_ident] save_config %s fopen -> error 3", mac_str);
            return -1;
        }
    }
    // Also after a merge that was refused: somebody sets limits for the device, so it is to be tracked.
    add_device_record_to_tail(mac_str);
    save_param();
    return result;
}

int set_device_app_list_use_time(const char *mac_str, char *buff, unsigned int *buff_len)
{
    if (!mac_str || !buff || !buff_len || *buff_len == 0)
        return -1;
    if (get_device_role(mac_str) == 0) {
        url_check_log(0, "[main] %s set_device_app_list_use_time -> rolo=0 dont save_config and load_device_config ", mac_str);
        {
            mutex_guard lock(device_apps_mtx);
            del_role_protect();
        }
        url_check_log(0, "[main] %s set_device_app_list_use_time -> rolo=0   del_role_protect over  ", mac_str);
        return 0;
    }
    if (save_config(mac_str, buff) != 0) {
        url_check_log(0, "[main] set_device_app_list_use_time -> save_config error 2");
        return -1;
    }
    mutex_guard lock(device_apps_mtx);
    if (device_record *dev = tracked_device(mac_str))
        load_device_config(dev);
    return 0;
}

int get_device_app_list_use_time_json(const char *mac_str, char *buff, unsigned int *buff_len)
{
    if (!mac_str || !buff || !buff_len || get_device_role(mac_str) != 1)
        return -1;
    cJSON *loaded = nullptr;
    if (load_config(mac_str, &loaded) != 0) {
        *buff_len = 0;
        return 0;
    }
    json_tree root(loaded);
    cJSON *limits = array_member(root.get(), "data");
    if (!limits || !config_is_of(root.get(), mac_str))
        return -1;
    json_tree answer(cJSON_CreateObject());
    if (!put_member(answer.get(), "err_no", cJSON_CreateString("0")) ||
        !put_member(answer.get(), "err_msg", cJSON_CreateString("success")) ||
        !put_member(answer.get(), "data", cJSON_DetachItemViaPointer(root.get(), limits)))
        return -1;
    heap_text text(cJSON_PrintUnformatted(answer.get()));
    if (!text)
        return -1;
    // One character less than the capacity allows: the web interface sizes its buffer for that. A capacity of 0 asks for the
    // length.
    if (*buff_len > 0)
        snprintf(buff, *buff_len - 1, "%s", text.get());
    *buff_len = static_cast<unsigned int>(strlen(text.get()));
    return 0;
}

namespace {

// The MAC text of a record from outside, whose terminator may be missing.
struct mac_copy {
    char text[sizeof(appident_payment_notify_st::mac)];
};

mac_copy mac_of(const appident_payment_notify_st &switches)
{
    mac_copy mac = {};
    memcpy(mac.text, switches.mac, sizeof(mac.text) - 1);
    return mac;
}

// Holds the lock while it changes the file and the record, and not while the platform's services work: the periodic pass and
// the traffic would wait for them. A failure is not reported: the web interface shows what is stored when it asks next.
void save_switches(const char *mac_str, const appident_payment_notify_st &wanted)
{
    if (keeps_no_settings(mac_str))
        return;
    bool to_commit = false;
    {
        mutex_guard lock(device_apps_mtx);
        to_commit =
            store_pay_config(mac_str, static_cast<int>(wanted.enable), static_cast<int>(wanted.weixin),
                             static_cast<int>(wanted.alipay), static_cast<int>(wanted.qqpay), static_cast<int>(wanted.applepay))
                .to_commit;
    }
    if (to_commit)
        save_param();
}

void switch_all(appident_payment_notify_st *switches, u32 value)
{
    switches->enable = switches->weixin = switches->alipay = switches->qqpay = switches->applepay = value;
}

// False, with nothing written, unless every switch is there. Files from before Apple Pay show it as QQ Pay is set.
bool read_switches(const cJSON *payment, appident_payment_notify_st *switches)
{
    u32 enable = 0;
    u32 types[payment_types] = {};
    if (!number_member(payment, payment_enable_key, UINT32_MAX, &enable))
        return false;
    for (int i = 0; i < payment_types; ++i) {
        if (number_member(payment, payment_type_rows[i].config_key, UINT32_MAX, &types[i]))
            continue;
        if (payment_type_rows[i].app_id != APPLE_PAY)
            return false;
        types[i] = types[i - 1];
    }
    switches->enable = enable;
    switches->weixin = types[0];
    switches->alipay = types[1];
    switches->qqpay = types[2];
    switches->applepay = types[3];
    return true;
}

} // namespace

int set_payment_config(appident_payment_notify_st *switches, unsigned int action)
{
    enum : unsigned int { action_store = 1, action_store_too = 2, action_all_off = 3 };
    if (!switches)
        return -1;
    appident_payment_notify_st wanted = *switches;
    if (action == action_all_off)
        switch_all(&wanted, 0);
    else if (action != action_store && action != action_store_too)
        return 0;
    save_switches(mac_of(wanted).text, wanted);
    return 0;
}

int get_payment_config(appident_payment_notify_st *switches, unsigned int num)
{
    if (!switches || num != 1)
        return -1;
    mac_copy mac = mac_of(*switches);
    cJSON *loaded = nullptr;
    if (load_config(mac.text, &loaded) != 0)
        return -1;
    json_tree root(loaded);
    if (!config_is_of(root.get(), mac.text))
        return -1;
    const cJSON *payment = object_member(root.get(), "payment");
    if (!payment) {
        switch_all(switches, 1);
        save_switches(mac.text, *switches);
        return 0;
    }
    if (read_switches(payment, switches))
        return 0;
    url_check_log(0, "[main] get_payment_config -> error 2");
    return -1;
}
