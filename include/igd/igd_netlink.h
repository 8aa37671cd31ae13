// Messages of the router's kernel messaging channel.
//
// Fixed binary layouts, the same on every target; integers are in host order, addresses in network order.
#ifndef IGD_NETLINK_H
#define IGD_NETLINK_H

#include "igd/igd_types.h"

#include <linux/netlink.h>
#include <stdalign.h>
#include <stddef.h>
#include <sys/socket.h>

// Message groups and ids of the header's gid and mid.
enum { IGD_GID_HOST = 5, IGD_GID_SYSTEM = 6 };
enum { IGD_MID_APPIDENT = 11 };
// Values of the header's action.
enum { IGD_ACTION_ADD = 0, IGD_ACTION_DEL = 2 };

// An open channel; filled by __nlk_msg_init.
struct igd_netlink_handler {
    struct sockaddr_nl src_addr;
    struct sockaddr_nl dst_addr;
    int sock_fd;
    u32 seq;
};

// The header that starts every message.
struct igd_nlk_comm {
    int key;
    int action;
    int gid;
    int mid;
    int id;
    int obj_nr;
    int obj_len;
    int prio;
    int index;
};
static_assert(sizeof(struct igd_nlk_comm) == 36, "message header");

// gid 5: a LAN device came on line or left.
struct nlk_host_msg {
    struct igd_nlk_comm comm;
    struct in_addr addr;
    unsigned char mac[6];
};
static_assert(sizeof(struct nlk_host_msg) == 48, "host message");
static_assert(offsetof(struct nlk_host_msg, addr) == 36 && offsetof(struct nlk_host_msg, mac) == 40, "host message");

// gid 6, mid 11: the kernel engine saw an application. Byte counters are 8-aligned on every target.
struct sys_msg_appident {
    int app_id;
    int action_type;
    u32 sip;
    uint16_t sport;
    uint16_t dport;
    uint8_t proto;
    u32 ip;
    alignas(8) u64 up_bytes;
    alignas(8) u64 down_bytes;
    u32 up_pkts;
    u32 down_pkts;
    unsigned char mac[6];
    u32 ruleid;
};
static_assert(sizeof(struct sys_msg_appident) == 64, "application event");
static_assert(offsetof(struct sys_msg_appident, ip) == 20 && offsetof(struct sys_msg_appident, up_bytes) == 24,
              "application event");
static_assert(offsetof(struct sys_msg_appident, mac) == 48 && offsetof(struct sys_msg_appident, ruleid) == 56,
              "application event");

// gid 6: a system message; the member of the union is told by mid.
struct nlk_sys_msg {
    struct igd_nlk_comm comm;
    union {
        struct sys_msg_appident appident;
        unsigned char bytes[304];
    } msg;
};
static_assert(sizeof(struct nlk_sys_msg) == 344, "system message");
static_assert(offsetof(struct nlk_sys_msg, msg) == 40, "system message");

#endif
