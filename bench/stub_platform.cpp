// A platform library that answers at once: every look-up of a MAC succeeds, the services have no answers.
//
// For counting the daemon's own instructions, so that nearly none of the count is the platform's.
#include "igd/igd_lib.h"

#include <arpa/inet.h>

extern "C" {

int nt_ipcserver_init2(const char *, ipc_handler)
{
    return -1;
}
int ipc_server_accept2(void)
{
    return -1;
}
int __nlk_msg_init(struct igd_netlink_handler *, int, int, int)
{
    return -1;
}
int nlk_msg_recv(struct igd_netlink_handler *, void *, int)
{
    return -1;
}
struct nl_sock *nltool_alloc_handle(void)
{
    return nullptr;
}
int get_lan_config(struct nos_lan_cfg *)
{
    return -1;
}

// The last two bytes of the address stand in the MAC.
int get_mac_by_ip(uint32_t ip, unsigned char *mac)
{
    u32 host = ntohl(ip);
    mac[0] = 0x02;
    mac[1] = 0x00;
    mac[2] = 0x5E;
    mac[3] = 0x00;
    mac[4] = static_cast<unsigned char>(host >> 8);
    mac[5] = static_cast<unsigned char>(host);
    return 0;
}

int call_cgi(const char *, const char *, char **)
{
    return 0;
}
int get_config_path(char *, int)
{
    return -1;
}
int save_param(void)
{
    return 0;
}
struct cJSON *json_load_file(const char *)
{
    return nullptr;
}
struct cJSON *json_load_buffer(const char *)
{
    return nullptr;
}
int nos_hostname_action(struct nos_hostname_cfg *)
{
    return -1;
}
int get_group_by_mac(const unsigned char *, int *, int *)
{
    return -1;
}
int new_push_msg(int, const char *, unsigned long)
{
    return 0;
}
int app_info_to_devpush(const struct app_info_sync_st *, int)
{
    return 0;
}
unsigned int get_system_uptime(void)
{
    return 0;
}
}
