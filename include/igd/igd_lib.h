// Operations of the router's platform library.
//
// The daemon calls nothing else of the platform. All have C linkage, so that a firmware's own library links unchanged, be it
// written in C11 or in C++17; platform/linux holds the library for a stock Linux box. None may call back into the daemon but
// the request handler, which runs inside ipc_server_accept2 on the calling thread.
#ifndef IGD_LIB_H
#define IGD_LIB_H

#include "igd/igd_netlink.h"
#include "igd/igd_types.h"

struct cJSON;
struct nl_sock;

#ifdef __cplusplus
extern "C" {
#endif

// A request: id and three words whose meaning depends on it. 0 is success.
typedef int (*ipc_handler)(unsigned int msg_id, void *pa, void *pb, void *pc);

// Creates the request server at the path and returns its descriptor, negative on failure.
int nt_ipcserver_init2(const char *path, ipc_handler handler);
// Accepts one pending connection, serves its request and answers it; 0, negative where none was served.
int ipc_server_accept2(void);

// Opens and binds the kernel messaging channel; 0 on success. Negative on failure, and h->sock_fd too.
int __nlk_msg_init(struct igd_netlink_handler *h, int a, int b, int c);
// Receives one message; its length, 0 or negative when there is none.
int nlk_msg_recv(struct igd_netlink_handler *h, void *buf, int len);
// A new unconnected libnl socket fit for multicast reception, or null.
struct nl_sock *nltool_alloc_handle(void);

// Fills the LAN interface's MAC, address and mask; 0 on success. Otherwise the daemon ends.
int get_lan_config(struct nos_lan_cfg *cfg);
// The MAC (six bytes) of a LAN address in network order; 0 on success, -1 when it is unknown.
int get_mac_by_ip(uint32_t ip, unsigned char *mac);

// Asks a web service of the router. Non-zero and *answer set on success; the caller frees the answer. 0 on failure.
int call_cgi(const char *path, const char *query, char **answer);

// Directory prefix of the per-device configuration files; 0 on success, -1 on failure.
int get_config_path(char *buf, int size);
// Commits parameter storage to permanent memory; 0 on success, -1 on failure.
int save_param(void);
// A parsed tree that the caller deletes, or null.
struct cJSON *json_load_file(const char *path);
struct cJSON *json_load_buffer(const char *text);

// Fills the names of the device whose MAC is set; 0 on success, -1 when it is unknown, and the names then stay empty.
int nos_hostname_action(struct nos_hostname_cfg *cfg);
// The family group of a device (six MAC bytes); 0 on success, negative when unknown.
int get_group_by_mac(const unsigned char *mac, int *homeid, int *forkid);

// Hands a push on; the text is copied before it returns. occur_time as the push says, or 0. Negative when it is lost.
int new_push_msg(int type, const char *data, unsigned long occur_time);
// Hands device-status records on; negative when they are lost.
int app_info_to_devpush(const struct app_info_sync_st *info, int count);

// Seconds since the system started.
unsigned int get_system_uptime(void);

#ifdef __cplusplus
}
#endif

#endif
