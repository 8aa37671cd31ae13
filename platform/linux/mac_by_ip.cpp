// get_mac_by_ip: the table first; on a miss one question to the kernel. Addresses that the kernel does not know are noted for a
// second, so that many messages from unknown addresses do not make as many questions.
#include "igd/igd_lib.h"

#include "common/guards.h"
#include "platform/linux/lan_neighbour.h"
#include "platform/linux/neighbour_table.h"
#include "platform/linux/neighbours.h"
#include "platform/linux/platform_counters.h"

#include <atomic>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <memory>
#include <netlink/attr.h>
#include <netlink/errno.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <string.h>

namespace {

// The kernel tells of a new neighbour by itself; asking only bridges the moment until then. Hence the small numbers.
constexpr u32 questions_a_second = 200;
constexpr u32 unknown_bits = 10;
constexpr u32 unknown_seconds = 1;

// An address that the kernel did not know, and the second of asking. When threads write at once, the two words may be of
// different addresses; the worst is a MAC found a second later.
struct unknown_address {
    std::atomic<u32> ip;
    std::atomic<u32> second;
};
unknown_address unknown_addresses[1u << unknown_bits];

// All with asker_lock held.
pthread_mutex_t asker_lock = PTHREAD_MUTEX_INITIALIZER;
nl_sock *asker = nullptr;
u32 asking_second = 0;
u32 asked_in_second = 0;
lan_neighbour answered;

unknown_address &slot_of(u32 ip)
{
    return unknown_addresses[(ip * 0x9E3779B1u) >> (32 - unknown_bits)];
}

u32 uptime_second()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<u32>(now.tv_sec);
}

bool recently_unknown(u32 ip, u32 second)
{
    const unknown_address &noted = slot_of(ip);
    return noted.ip.load(std::memory_order_relaxed) == ip &&
           second - noted.second.load(std::memory_order_relaxed) <= unknown_seconds;
}

void remember_unknown(u32 ip, u32 second)
{
    slot_of(ip).second.store(second, std::memory_order_relaxed);
    slot_of(ip).ip.store(ip, std::memory_order_relaxed);
}

int on_answer(nl_msg *message, void *)
{
    if (!read_lan_neighbour(nlmsg_hdr(message), &answered))
        answered = {};
    return NL_OK;
}

bool open_asker()
{
    if (asker)
        return true;
    asker = nl_socket_alloc();
    if (!asker)
        return false;
    nl_socket_disable_auto_ack(asker);
    nl_socket_modify_cb(asker, NL_CB_VALID, NL_CB_CUSTOM, on_answer, nullptr);
    return nl_connect(asker, NETLINK_ROUTE) >= 0 && nl_socket_set_nonblocking(asker) >= 0;
}

void close_asker()
{
    nl_socket_free(asker);
    asker = nullptr;
}

// The kernel answers within the sending call, so there is nothing to wait for.
bool ask_kernel(u32 ip)
{
    answered = {};
    std::unique_ptr<nl_msg, released_by<nlmsg_free>> question(nlmsg_alloc_simple(RTM_GETNEIGH, NLM_F_REQUEST));
    ndmsg about = {};
    about.ndm_family = AF_INET;
    about.ndm_ifindex = static_cast<int>(lan_interface_index());
    if (!question || nlmsg_append(question.get(), &about, sizeof(about), NLMSG_ALIGNTO) < 0 ||
        nla_put(question.get(), NDA_DST, sizeof(ip), &ip) < 0)
        return false;
    int result = open_asker() ? nl_send_auto(asker, question.get()) : -NLE_FAILURE;
    if (result >= 0)
        result = nl_recvmsgs_default(asker);
    // After anything but a plain answer the socket may hold a left-over one.
    if (result < 0 && result != -NLE_OBJ_NOTFOUND)
        close_asker();
    return answered.ip == ip && answered.usable;
}

bool may_ask(u32 second)
{
    if (second != asking_second)
        asked_in_second = 0;
    asking_second = second;
    return asked_in_second++ < questions_a_second;
}

// The answer is not kept: the kernel's own notification is on its way, and only those come in the order of what happened.
bool resolve(u32 ip, u32 second, unsigned char *mac)
{
    mutex_guard held(asker_lock);
    if (!may_ask(second)) {
        count_platform(platform_neighbours_not_asked);
        return false;
    }
    count_platform(platform_neighbours_asked);
    if (!ask_kernel(ip)) {
        remember_unknown(ip, second);
        return false;
    }
    memcpy(mac, answered.mac, sizeof(answered.mac));
    return true;
}

} // namespace

int get_mac_by_ip(uint32_t ip, unsigned char *mac)
{
    if (neighbour_find(ip, mac))
        return 0;
    u32 second = uptime_second();
    if (ip != 0 && !recently_unknown(ip, second)) {
        neighbours_start();
        if (resolve(ip, second, mac))
            return 0;
    }
    count_platform(platform_neighbours_unknown);
    return -1;
}
