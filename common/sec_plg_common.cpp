#include "common/sec_plg_common.h"

#include "common/log.h"
#include "igd/igd_lib.h"

#include <arpa/inet.h>
#include <string.h>

nos_lan_cfg g_lan_cfg;

int plugin_common_init(void)
{
    memset(&g_lan_cfg, 0, sizeof(g_lan_cfg));
    if (get_lan_config(&g_lan_cfg) != 0)
        return -1;
    url_check_log(0, "[sec_plg_common] lan ip: %s\n", inet_ntoa(g_lan_cfg.ip));
    return 0;
}

char *get_mac_str_by_ip(u32 ip, char *buf, int len)
{
    if (!buf || len < mac_text_size)
        return nullptr;
    unsigned char mac[6] = {};
    if (get_mac_by_ip(ip, mac) != 0)
        return nullptr;
    return get_mac_str_by_mac(mac, buf, len);
}

char *get_mac_str_by_mac(const unsigned char *mac, char *buf, int len)
{
    if (!mac || !buf || len < mac_text_size)
        return nullptr;
    char text[mac_text_size];
    write_mac_text(mac, text);
    memcpy(buf, text, sizeof(text));
    return buf;
}
