#include "appident/tracking/offline.h"

#include "appident/model/device_list.h"
#include "appident/model/session_time.h"
#include "appident/pushes/push_history.h"
#include "appident/pushes/push_presence.h"
#include "appident/router/device_service.h"
#include "appident/settings/config_file.h"
#include "appident/tracking/device_registry.h"
#include "appident/tracking/sessions.h"
#include "common/log.h"

#include <stdio.h>

void process_offline_apps(void)
{
    list_for_each(node, &device_apps_head) {
        device_record *dev = device_of(node);
        if (dev->device_state != device_active)
            continue;
        push_delay_history_time(dev);
        for (int slot = 0; slot < apps_per_device; slot++) {
            if (dev->apps[slot].app_id != 0 && dev->apps[slot].app_state == APP_USING)
                close_session(dev, slot, closing::departure);
        }
    }
}

namespace {

// The record is freed next; nothing in it is changed.
void push_last_sessions(device_record *dev, int role)
{
    for (int slot = 0; slot < apps_per_device; slot++) {
        app_ident_record *app = &dev->apps[slot];
        if (app->app_id == 0 || app->app_state != APP_USING || app->time_axis_app_state != APP_USING ||
            is_short(app->time_axis_period_time))
            continue;
        push_offline_app(*dev, slot);
        url_check_log(0, "[appident] in del_role_protect  mac:%s   role:%d  push_history_time_axis_sumtime", dev->mac, role);
        push_history_time_axis_sumtime(dev, app);
    }
}

// False when the platform does not know the directory; the device then stays until the next call.
bool delete_config_file(const device_record &dev)
{
    config_path path;
    if (!make_config_path(dev.mac, &path))
        return false;
    int result = remove(path.text);
    url_check_log(0, "[app_ident]   config_path: %s  remove ret:%d", path.text, result);
    return true;
}

} // namespace

void del_role_protect(void)
{
    list_for_each_safe(node, next, &device_apps_head) {
        device_record *dev = device_of(node);
        if (dev->device_state == device_listed)
            continue;
        int role = get_device_role(dev->mac);
        if (role != 0)
            continue;
        push_last_sessions(dev, role);
        if (!delete_config_file(*dev))
            continue;
        char mac[sizeof(dev->mac)];
        snprintf(mac, sizeof(mac), "%s", dev->mac);
        remove_device(dev);
        url_check_log(0, "[appident] role = %d   : %s del one node from list", role, mac);
    }
}
