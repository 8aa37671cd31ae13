#include "bench/turns.h"

#include "appident/app_ident.h"
#include "appident/router/traffic_socket.h"
#include "bench/peer.h"
#include "bench/world.h"
#include "common/counters.h"
#include "common/log.h"
#include "common/sec_plg_common.h"
#include "igd/igd_lib.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <linux/sock_diag.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <time.h>
#include <unistd.h>

namespace {

constexpr u32 daemon_group = 2, bare_group = 3, peer_group = 4; // of connection tracking; the daemon joins neither 3 nor 4
constexpr u32 queued_burst = 4000, waited_burst = 1500;

struct receiver {
    int fd;
    u32 group;
    std::atomic<pid_t> thread{0};
    std::atomic<clockid_t> clock{0};
};
receiver bare, daemon_turn, peer;
nl_sock *peer_socket;
igd_netlink_handler channel;
int request_fd;

// The name is for profilers.
void introduce(receiver &self, const char *name)
{
    pthread_setname_np(pthread_self(), name);
    clockid_t clock;
    pthread_getcpuclockid(pthread_self(), &clock);
    self.clock = clock;
    self.thread = static_cast<pid_t>(syscall(SYS_gettid));
}

// As a loop waits that also serves the channel and requests.
void wait_for_message(const receiver &self)
{
    fd_set set;
    timeval timeout;
    do {
        FD_ZERO(&set);
        FD_SET(self.fd, &set);
        FD_SET(channel.sock_fd, &set);
        FD_SET(request_fd, &set);
        timeout = {5, 0};
    } while (select(std::max({self.fd, channel.sock_fd, request_fd}) + 1, &set, nullptr, nullptr, &timeout) <= 0 ||
             !FD_ISSET(self.fd, &set));
}

void receive_bare()
{
    introduce(bare, "bare");
    for (;;) {
        wait_for_message(bare);
        void *volatile buffer = malloc(8192);
        if (read(bare.fd, buffer, 8192) < 0)
            perror("read");
        free(buffer);
    }
}

void receive_as_daemon()
{
    introduce(daemon_turn, "daemon");
    serve_events(daemon_turn.fd, &channel, request_fd);
}

void receive_as_peer()
{
    introduce(peer, "peer");
    for (;;) {
        wait_for_message(peer);
        receive_the_usual_way(peer_socket);
    }
}

nl_sock *open_socket(u32 group)
{
    nl_sock *socket = nltool_alloc_handle();
    int size = 4 * 1024 * 1024;
    if (!socket || nl_connect(socket, NETLINK_NETFILTER) < 0 || nl_socket_add_membership(socket, static_cast<int>(group)) < 0 ||
        setsockopt(nl_socket_get_fd(socket), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0) {
        perror("a netlink socket");
        _exit(1);
    }
    return socket;
}

double time_used(const receiver &of)
{
    timespec now = {};
    clock_gettime(of.clock, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Times that the thread went to sleep.
long waits_of(const receiver &of)
{
    std::ifstream status("/proc/self/task/" + std::to_string(of.thread.load()) + "/status");
    for (std::string word; status >> word;) {
        long value;
        if (word == "voluntary_ctxt_switches:" && status >> value)
            return value;
    }
    return 0;
}

void run_as(int policy, int priority)
{
    sched_param parameter = {};
    parameter.sched_priority = priority;
    if (sched_setscheduler(0, policy, &parameter) != 0) {
        perror("a scheduling policy");
        _exit(1);
    }
}

bool is_drained(const receiver &of)
{
    u32 memory[SK_MEMINFO_VARS] = {};
    socklen_t size = sizeof(memory);
    getsockopt(of.fd, SOL_SOCKET, SO_MEMINFO, memory, &size);
    return memory[SK_MEMINFO_RMEM_ALLOC] == 0;
}

void let_drain(const receiver &of)
{
    do
        usleep(2000);
    while (!is_drained(of));
    usleep(1000);
}

struct cost {
    double nanoseconds, waits; // of each message
};

// Messages go round the devices, and round the apps of each: the next one is never of the record just touched.
cost time_burst(const receiver &to, int sender, const std::vector<message> &messages, bool queued)
{
    static u32 next = 0;
    u32 burst = queued ? queued_burst : waited_burst;
    let_drain(to);
    double before = time_used(to);
    long waits = waits_of(to);
    // Above the receiver nothing is read before all is sent; below it each message is read before the next is sent.
    queued ? run_as(SCHED_FIFO, 1) : run_as(SCHED_IDLE, 0);
    for (u32 i = 0; i < burst; i++)
        send_to_group(sender, to.group, messages[next++ % messages.size()]);
    run_as(SCHED_OTHER, 0);
    let_drain(to);
    return {(time_used(to) - before) / burst, static_cast<double>(waits_of(to) - waits) / burst};
}

double median(std::vector<double> of)
{
    std::nth_element(of.begin(), of.begin() + static_cast<long>(of.size() / 2), of.end());
    return of[of.size() / 2];
}

turn_costs compare(int sender, const std::vector<message> &messages, bool queued, int rounds)
{
    std::vector<double> bares, turns, peers, ratios, peer_ratios, waits;
    for (int round = -2; round < rounds; round++) { // two to warm up
        cost c = time_burst(bare, sender, messages, queued);
        cost t = time_burst(daemon_turn, sender, messages, queued);
        cost p = time_burst(peer, sender, messages, queued);
        if (round < 0)
            continue;
        bares.push_back(c.nanoseconds);
        turns.push_back(t.nanoseconds);
        peers.push_back(p.nanoseconds);
        ratios.push_back(t.nanoseconds / c.nanoseconds);
        peer_ratios.push_back(t.nanoseconds / p.nanoseconds);
        waits.push_back(t.waits);
    }
    return {median(bares), median(turns), median(peers), median(ratios), median(peer_ratios), median(waits)};
}

void start_daemon_parts()
{
    log_file = "/tmp/appident.log";
    url_check_init();
    counters_init();
    request_fd = nt_ipcserver_init2("/tmp/.appident.ipc", cgi_event_handler);
    __nlk_msg_init(&channel, 176, 0, 0);
    daemon_turn.fd = open_traffic_socket();
    daemon_turn.group = daemon_group;
    bare.fd = nl_socket_get_fd(open_socket(bare_group));
    bare.group = bare_group;
    peer_socket = open_socket(peer_group);
    prepare_the_usual_way(peer_socket);
    peer.fd = nl_socket_get_fd(peer_socket);
    peer.group = peer_group;
    if (plugin_common_init() != 0 || daemon_turn.fd < 0) {
        fprintf(stderr, "the daemon's parts do not start\n");
        _exit(1);
    }
    init_device_app_list();
    std::thread(receive_as_daemon).detach();
    std::thread(receive_bare).detach();
    std::thread(receive_as_peer).detach();
    while (bare.thread == 0 || daemon_turn.thread == 0 || peer.thread == 0)
        usleep(1000);
}

u32 tracked_hits()
{
    usleep(300 * 1000); // the loop has shown its counters by then, or they may be shown now
    show_counters();
    counter_reading readings[counter_end];
    u32 owner;
    return counter_page_read(counters_path, readings, counter_end, &owner) == counter_end ? readings[counter_hits_tracked].value
                                                                                          : 0;
}

} // namespace

turn_report measure_turns(u32 devices, int rounds)
{
    start_daemon_parts();
    int sender = open_sender();
    start_every_app(sender, daemon_group, devices);
    let_drain(daemon_turn);

    std::vector<message> messages;
    for (u32 app = 0; app < apps_in_use; app++)
        for (u32 device = 0; device < devices; device++)
            messages.push_back(hit(device, first_app + app, continuing));
    u32 tracked = tracked_hits();
    turn_report report = {devices, compare(sender, messages, true, rounds), compare(sender, messages, false, rounds), 0, 0};
    double sent = static_cast<double>(rounds + 2) * (queued_burst + waited_burst);
    report.tracked_of_10000 = static_cast<u32>((tracked_hits() - tracked) * 10000.0 / sent + 0.5);
    report.peer_of_10000 = static_cast<u32>(messages_of_peer() * 10000.0 / sent + 0.5);
    return report;
}
