#include "appident/event_loop.h"

#include "appident/tracking/app_actions.h"
#include "appident/tracking/app_hits.h"
#include "appident/tracking/device_registry.h"
#include "common/counters.h"
#include "common/guards.h"
#include "common/sec_plg_common.h"
#include "igd/igd_lib.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <string.h>
#include <sys/select.h>
#include <time.h>

namespace {

constexpr size_t message_size = 8192;
constexpr int drain_limit = 64; // messages before the next select
constexpr unsigned turns_until_look = 8;
constexpr int wait_seconds = 5;

heap_ptr<unsigned char> message_buffer()
{
    heap_ptr<unsigned char> buffer(static_cast<unsigned char *>(malloc(message_size)));
    if (!buffer)
        count(counter_no_memory);
    return buffer;
}

// Takes what is queued, up to the limit: select for each message would cost more than reading it, and traffic goes before
// everything else anyway. Where messages come one by one, the read that finds the queue empty would cost nearly as much again:
// after a turn with a single message the next ones take just one, and only every few turns look for a second.
void drain_traffic(int fd)
{
    static unsigned single_turns = 0;
    heap_ptr<unsigned char> buffer = message_buffer();
    if (!buffer)
        return;
    int limit = single_turns % turns_until_look == 0 ? drain_limit : 1;
    int taken = 0;
    while (taken < limit) {
        ssize_t length = read(fd, buffer.get(), message_size);
        if (length < 0 && errno == ENOBUFS)
            count(counter_traffic_lost);
        if (length < 0)
            break;
        taken++;
        dispatch_traffic_message(buffer.get(), length);
        if (length == 0)
            break;
    }
    single_turns = taken > 1 ? 0 : single_turns + 1;
}

// The kernel counts what it drops when the receive buffer is full; asked at most once a second.
void note_lost_messages(int fd)
{
    static time_t asked = 0;
    time_t now = time(nullptr);
    if (now == asked)
        return;
    asked = now;
    u32 memory[SK_MEMINFO_VARS] = {};
    socklen_t size = sizeof(memory);
    if (getsockopt(fd, SOL_SOCKET, SO_MEMINFO, memory, &size) == 0 && size > SK_MEMINFO_DROPS * sizeof(u32))
        set_counter(counter_traffic_lost, memory[SK_MEMINFO_DROPS]);
}

bool dispatch_host_message(const unsigned char *buffer, int length)
{
    // The two bytes behind the MAC are padding and may be missing.
    constexpr int needed = static_cast<int>(offsetof(nlk_host_msg, mac)) + 6;
    if (length < needed)
        return false;
    const auto *message = reinterpret_cast<const nlk_host_msg *>(buffer);
    if (message->comm.action != IGD_ACTION_ADD && message->comm.action != IGD_ACTION_DEL)
        return false;
    in_addr address = message->addr;
    handle_device_action(message->comm.action, &address, message->mac);
    return true;
}

bool dispatch_system_message(const unsigned char *buffer, int length)
{
    constexpr int needed = static_cast<int>(offsetof(nlk_sys_msg, msg) + offsetof(sys_msg_appident, ruleid) + sizeof(u32));
    const auto *comm = reinterpret_cast<const igd_nlk_comm *>(buffer);
    if (comm->mid != IGD_MID_APPIDENT || length < needed)
        return false;
    if (comm->action != IGD_ACTION_ADD && comm->action != IGD_ACTION_DEL)
        return false;
    // The header's action decides, not the body's action_type.
    const auto *body = reinterpret_cast<const sys_msg_appident *>(buffer + offsetof(nlk_sys_msg, msg));
    handle_app_action(comm->action, static_cast<u32>(body->app_id), body->ruleid, body->mac, body->ip);
    return true;
}

bool dispatch_router_message(const unsigned char *buffer, int length)
{
    if (length < static_cast<int>(sizeof(igd_nlk_comm)))
        return false;
    int group = reinterpret_cast<const igd_nlk_comm *>(buffer)->gid;
    if (group == IGD_GID_HOST)
        return dispatch_host_message(buffer, length);
    return group == IGD_GID_SYSTEM && dispatch_system_message(buffer, length);
}

// The readable descriptors of one wait, and the highest number ever waited on.
struct wait_set {
    fd_set readable;
    int highest;
};

void add(wait_set &set, int fd)
{
    if (fd < 0 || fd >= FD_SETSIZE)
        return;
    FD_SET(fd, &set.readable);
    if (fd > set.highest)
        set.highest = fd;
}

bool is_ready(const wait_set &set, int fd)
{
    return fd >= 0 && fd < FD_SETSIZE && FD_ISSET(fd, &set.readable);
}

} // namespace

int dispatch_traffic_message(unsigned char *buffer, ssize_t length)
{
    auto *message = reinterpret_cast<nlmsghdr *>(buffer);
    count(counter_traffic_messages);
    constexpr ssize_t family_header = sizeof(u32);
    if (length <= static_cast<ssize_t>(NLMSG_SPACE(family_header)) || message->nlmsg_len > static_cast<size_t>(length)) {
        count(counter_traffic_short);
        return -1;
    }
    message->nlmsg_type &= 0xFF;
    if (message->nlmsg_type != IPCTNL_MSG_CT_DPI_ACCT) {
        count(counter_traffic_other);
        return -1;
    }
    app_data decoded = {};
    int result = process_app_acct_message(message, &decoded);
    if (result != 0)
        count(counter_traffic_undecodable);
    // What was decoded goes on whatever the result: the tracking drops what it cannot use.
    handle_app_ident_event(&decoded);
    return result;
}

int handle_traffic_event(int fd)
{
    heap_ptr<unsigned char> buffer = message_buffer();
    if (!buffer)
        return -1;
    return dispatch_traffic_message(buffer.get(), read(fd, buffer.get(), message_size));
}

int handle_igd_msg(igd_netlink_handler *h)
{
    heap_ptr<unsigned char> buffer = message_buffer();
    if (!buffer)
        return -1;
    int length = nlk_msg_recv(h, buffer.get(), message_size);
    if (length <= 0)
        return -1;
    count(counter_router_messages);
    if (!dispatch_router_message(buffer.get(), length))
        count(counter_router_ignored);
    return 0;
}

void serve_events(int traffic_fd, igd_netlink_handler *messages, int request_fd)
{
    int flags = fcntl(traffic_fd, F_GETFL);
    bool may_drain = flags >= 0 && fcntl(traffic_fd, F_SETFL, flags | O_NONBLOCK) == 0;
    set_counter(counter_serving, 1);
    wait_set set = {};
    for (;;) {
        show_counters();
        FD_ZERO(&set.readable);
        add(set, traffic_fd);
        add(set, messages->sock_fd);
        add(set, request_fd);
        timeval timeout = {wait_seconds, 0};
        // After any other failure the set still holds all three; the first of them then gets its read.
        if (select(set.highest + 1, &set.readable, nullptr, nullptr, &timeout) < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        note_lost_messages(traffic_fd);
        // One of the three, in this order: the kernel drops traffic that is not read in time, while events and requests can
        // wait.
        if (is_ready(set, traffic_fd))
            may_drain ? drain_traffic(traffic_fd) : static_cast<void>(handle_traffic_event(traffic_fd));
        else if (is_ready(set, messages->sock_fd))
            handle_igd_msg(messages);
        else if (is_ready(set, request_fd))
            ipc_server_accept2();
    }
}
