#include "platform/linux/neighbours.h"

#include "common/guards.h"
#include "platform/linux/lan_choice.h"
#include "platform/linux/lan_neighbour.h"
#include "platform/linux/neighbour_table.h"
#include "platform/linux/observed_file.h"
#include "platform/linux/platform_counters.h"
#include "platform/linux/presence.h"
#include "platform/linux/worker.h"

#include <linux/rtnetlink.h>
#include <netlink/errno.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/rtnl.h>
#include <netlink/socket.h>
#include <poll.h>

namespace {

constexpr int receive_buffer = 512 * 1024;
constexpr int reopen_milliseconds = 1000;
constexpr int tick_milliseconds = 1000;

// The following thread's own.
bool dump_running = false;
bool dump_wanted = false;
bool dump_disturbed = false;
u32 current_round = 0;
u32 followed_index = 0; // of the interface whose neighbours were asked for
u64 last_tick = 0;

pthread_mutex_t start_lock = PTHREAD_MUTEX_INITIALIZER;
bool started = false;

int on_message(nl_msg *message, void *)
{
    lan_neighbour neighbour;
    if (!read_lan_neighbour(nlmsg_hdr(message), &neighbour))
        return NL_OK;
    // Answers to a question carry the number of its asking.
    presence_take(neighbour, nlmsg_hdr(message)->nlmsg_seq != 0, current_round);
    if (neighbour.ip == 0) // hits name their devices by IPv4 only
        return NL_OK;
    mutex_guard held(neighbour_writers);
    if (!neighbour.usable)
        neighbour_forget(neighbour.ip);
    else if (!neighbour_store(neighbour.ip, neighbour.mac, current_round))
        count_platform(platform_neighbours_table_full);
    return NL_OK;
}

int on_dump_disturbed(nl_msg *, void *)
{
    dump_disturbed = true;
    return NL_OK;
}

int on_dump_end(nl_msg *, void *)
{
    dump_running = false;
    // A disturbed dump may have left out somebody who is there: nobody is forgotten on its word.
    if (dump_disturbed) {
        dump_wanted = true;
        return NL_STOP;
    }
    presence_sweep(current_round);
    mutex_guard held(neighbour_writers);
    neighbour_sweep(current_round);
    return NL_STOP;
}

bool start_dump(nl_sock *sock)
{
    dump_wanted = dump_disturbed = false;
    dump_running = true;
    ++current_round;
    followed_index = lan_interface_index();
    return nl_rtgen_request(sock, RTM_GETNEIGH, AF_UNSPEC, NLM_F_DUMP) >= 0;
}

// Notifications first, then the whole table: nothing can change unseen in between.
bool open_notifications(nl_sock *sock)
{
    nl_socket_disable_seq_check(sock);
    nl_socket_disable_auto_ack(sock);
    nl_socket_modify_cb(sock, NL_CB_VALID, NL_CB_CUSTOM, on_message, nullptr);
    nl_socket_modify_cb(sock, NL_CB_FINISH, NL_CB_CUSTOM, on_dump_end, nullptr);
    nl_socket_modify_cb(sock, NL_CB_DUMP_INTR, NL_CB_CUSTOM, on_dump_disturbed, nullptr);
    return nl_connect(sock, NETLINK_ROUTE) >= 0 && nl_socket_set_nonblocking(sock) >= 0 &&
           nl_socket_set_buffer_size(sock, receive_buffer, 0) >= 0 && nl_socket_add_membership(sock, RTNLGRP_NEIGH) >= 0;
}

void tick()
{
    u64 now = uptime_second();
    if (now == last_tick)
        return;
    last_tick = now;
    look_for_lan();
    if (lan_interface_index() != followed_index)
        dump_wanted = true;
    presence_tick();
}

// False when the socket fails.
bool take_messages(nl_sock *sock)
{
    int result = nl_recvmsgs_default(sock);
    if (result == -NLE_NOMEM) {
        // The kernel had more to tell than the buffer holds.
        count_platform(platform_neighbours_overruns);
        dump_wanted = true;
        return true;
    }
    return result >= 0 || result == -NLE_INTR || result == -NLE_AGAIN || result == -NLE_DUMP_INTR;
}

// Returns when the socket fails.
void follow(nl_sock *sock)
{
    if (!open_notifications(sock) || !start_dump(sock))
        return;
    for (;;) {
        pollfd readable = {nl_socket_get_fd(sock), POLLIN, 0};
        if (poll(&readable, 1, tick_milliseconds) > 0 && !take_messages(sock))
            return;
        tick();
        if (dump_wanted && !dump_running && !start_dump(sock))
            return;
    }
}

void *follow_for_ever(void *)
{
    observed_load();
    for (;;) {
        if (nl_sock *sock = nl_socket_alloc()) {
            follow(sock);
            nl_socket_free(sock);
        }
        dump_running = false;
        count_platform(platform_neighbours_reopened);
        poll(nullptr, 0, reopen_milliseconds);
    }
}

} // namespace

void neighbours_start()
{
    mutex_guard held(start_lock);
    if (started)
        return;
    look_for_lan();
    started = start_worker(follow_for_ever);
}
