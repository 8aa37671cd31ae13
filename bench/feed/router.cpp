#include "bench/feed/router.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sstream>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace {

// Arguments: name, MAC of the router, address and MAC of the device, address and MAC of the server.
constexpr const char *set_up = R"(set -e
ip netns add $1
for side in lan wan; do
    ip link add $1_$side type veth peer name $side address $2 netns $1
    ip link set $1_$side addrgenmode none up
    ip -n $1 link set $side addrgenmode none up
done
ip -n $1 address add 192.168.77.1/24 dev lan
ip -n $1 address add 203.0.113.1/24 dev wan
ip -n $1 neighbour add $3 lladdr $4 dev lan nud permanent
ip -n $1 neighbour add $5 lladdr $6 dev wan nud permanent
ip netns exec $1 sh -c "echo 1 >/proc/sys/net/ipv4/ip_forward"
ip netns exec $1 nft "add table filter; add chain filter forward { type filter hook forward priority 0; }
    add rule filter forward ct state established,related accept"
)";

// A child that ends with us, its output in the file; an empty file leaves it.
pid_t start(const std::vector<std::string> &words, const std::string &output)
{
    fflush(nullptr);
    pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (!output.empty()) {
        int file = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(file, STDOUT_FILENO);
        dup2(file, STDERR_FILENO);
    }
    std::vector<char *> raw;
    for (const std::string &word : words)
        raw.push_back(const_cast<char *>(word.c_str()));
    raw.push_back(nullptr);
    execvp(raw[0], raw.data());
    _exit(127);
}

bool run(const std::vector<std::string> &words, const std::string &output)
{
    int status = 0;
    return waitpid(start(words, output), &status, 0) > 0 && status == 0;
}

std::string log_of(const router &one)
{
    return "/tmp/" + one.name + ".log";
}

int packet_socket(const std::string &interface)
{
    int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0); // protocol 0: it only sends
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    if (address.sll_ifindex == 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        perror(interface.c_str());
        return -1;
    }
    return fd;
}

uint64_t number_in(const std::string &path)
{
    uint64_t number = 0;
    std::ifstream(path) >> number;
    return number;
}

double monotonic_ns()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

void schedule(int policy, int priority)
{
    sched_param chosen{};
    chosen.sched_priority = priority;
    if (sched_setscheduler(0, policy, &chosen) != 0) {
        perror("real-time scheduling");
        exit(3); // a container may not allow it
    }
}

} // namespace

bool make_router(const std::string &name, router *out)
{
    out->name = name;
    if (!run({"sh", "-c", set_up, "sh", name, router_mac, device_address, device_mac, server_address, server_mac}, ""))
        return false;
    out->lan = packet_socket(name + "_lan");
    out->wan = packet_socket(name + "_wan");
    return out->lan >= 0 && out->wan >= 0;
}

bool start_watcher(router *one, std::vector<std::string> words, const std::string &ready)
{
    constexpr int tries = 300, between_tries_us = 100000;
    words.insert(words.begin(), {"ip", "netns", "exec", one->name});
    one->watcher = start(words, log_of(*one));
    for (int i = 0; i < tries; i++) {
        if (run({"ip", "netns", "exec", one->name, "sh", "-c", ready}, "/dev/null"))
            return true;
        usleep(between_tries_us);
    }
    fprintf(stderr, "%s: what shall watch does not:\n", one->name.c_str());
    run({"tail", "-n", "5", log_of(*one)}, "");
    return false;
}

void stop_watcher(router *one, int signal)
{
    kill(one->watcher, signal);
    waitpid(one->watcher, nullptr, 0);
    one->watcher = -1;
}

double send_frames(const router &to, const std::vector<frame> &frames)
{
    constexpr unsigned int most_at_once = 64;
    mmsghdr messages[most_at_once] = {};
    iovec places[most_at_once];
    schedule(SCHED_FIFO, 1);
    double began = monotonic_ns();
    for (size_t at = 0; at < frames.size();) {
        unsigned int count = 0;
        for (; count < most_at_once && at + count < frames.size() && frames[at + count].from_lan == frames[at].from_lan;
             count++) {
            const std::vector<uint8_t> &bytes = frames[at + count].bytes;
            places[count] = {const_cast<uint8_t *>(bytes.data()), bytes.size()};
            messages[count].msg_hdr.msg_iov = &places[count];
            messages[count].msg_hdr.msg_iovlen = 1;
        }
        int sent = sendmmsg(frames[at].from_lan ? to.lan : to.wan, messages, count, 0);
        at += static_cast<size_t>(std::max(sent, 0));
    }
    double taken = monotonic_ns() - began;
    schedule(SCHED_OTHER, 0);
    return taken;
}

uint64_t packets_forwarded(const router &one)
{
    // Not below /sys, which shows the network that it was mounted in.
    std::ifstream table("/proc/self/net/dev");
    uint64_t sum = 0;
    for (std::string line, interface; std::getline(table, line);) {
        std::istringstream words(line);
        uint64_t bytes = 0, packets = 0;
        if (words >> interface >> bytes >> packets && interface.compare(0, one.name.size() + 1, one.name + "_") == 0)
            sum += packets;
    }
    return sum;
}

double watcher_time(const router &one)
{
    return one.watcher < 0 ? 0 : static_cast<double>(number_in("/proc/" + std::to_string(one.watcher) + "/schedstat"));
}

double watcher_resident_kb(const router &one)
{
    std::ifstream status("/proc/" + std::to_string(one.watcher) + "/status");
    for (std::string word; status >> word;)
        if (word == "VmRSS:") {
            double kb = 0;
            status >> kb;
            return kb;
        }
    return 0;
}
