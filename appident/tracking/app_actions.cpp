#include "appident/tracking/app_actions.h"

#include "appident/model/device_list.h"
#include "appident/pushes/payment.h"
#include "appident/tracking/device_registry.h"
#include "common/accounting_format.h"
#include "common/guards.h"
#include "common/log.h"
#include "common/sec_plg_common.h"

#include <arpa/inet.h>

namespace {

enum : int { action_online = 0, action_offline = 2 };

// Not Apple Pay, for which no alert is ever raised.
bool is_watched_payment_app(u32 app_id)
{
    return app_id == WECHAT_PAY || app_id == ALI_PAY || app_id == QQ_PAY;
}

void note_payment_hit(const char *mac_text, u32 word, u32 ruleid, const unsigned char *mac, u32 ip)
{
    device_record *dev = tracked_device(mac_text);
    if (!dev)
        return;
    char ip_text[INET_ADDRSTRLEN] = "";
    in_addr address = {ip};
    inet_ntop(AF_INET, &address, ip_text, sizeof(ip_text));
    activate_device(dev, ip_text, mac); // unless it is active already
    add_app_payment_record(dev, word, ruleid);
}

} // namespace

void handle_app_action(int action, u32 app_id, u32 ruleid, const unsigned char *mac, u32 ip)
{
    if (!mac || word_vendor(app_id) != our_vendor)
        return;
    char mac_text[20] = "";
    get_mac_str_by_mac(mac, mac_text, sizeof(mac_text));
    u32 app = word_app_id(app_id);
    if (mac_text[0] == '\0' || !is_watched_payment_app(app))
        return;
    mutex_guard lock(device_apps_mtx);
    if (action == action_offline) {
        // "APPID" takes the app id out of the word a second time and so shows 0: technicians search for this form of the line.
        url_check_log(0, "[appident] #-> app offline appid: %d, APPID: %d, ruleid: %d, MAC: %s", static_cast<int>(app),
                      static_cast<int>(word_app_id(app)), static_cast<int>(ruleid), mac_text);
        return;
    }
    if (action != action_online)
        return;
    url_check_log(0, "[appident] [MATCH]!-> app online appid: %d, app_id: %d, ruleid: %d, MAC: %s", static_cast<int>(app_id),
                  static_cast<int>(app), static_cast<int>(ruleid), mac_text);
    note_payment_hit(mac_text, app_id, ruleid, mac, ip);
}
