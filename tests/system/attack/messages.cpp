// Attacks by number: router messages, and limits in one request.
#include "tests/system/attack/attack.h"

#include "common/guards.h"
#include "common/sec_plg_common.h"
#include "platform/linux/client/request_client.h"
#include "simulator/world/daemon_process.h"
#include "simulator/world/household_files.h"
#include "simulator/world/kernel_messages.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <linux/netlink.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;

fd_guard subscribe()
{
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (std::string(runtime_directory) + "/pushes.sock").copy(address.sun_path, sizeof address.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        perror("pushes.sock");
    return fd_guard(fd);
}

// Until a line tells of the app; false after ten seconds without.
bool told_of(int subscriber, u32 app)
{
    const std::string words = "\"app_id\":" + std::to_string(app) + ",";
    std::string text;
    for (pollfd ready = {subscriber, POLLIN, 0}; poll(&ready, 1, 10000) == 1;) {
        char piece[65536];
        ssize_t got = recv(subscriber, piece, sizeof piece, 0);
        if (got <= 0)
            return false;
        text.append(piece, static_cast<size_t>(got));
        if (text.find(words) != std::string::npos)
            return true;
    }
    return false;
}

// Starts ten apps of every device, one after the other, and measures from each message to the line that tells of it, in
// microseconds. False when a line did not come.
bool measure_hits(int conntrack, int subscriber, u32 first_app, std::vector<long long> *took)
{
    for (u32 app = first_app; app < first_app + 10; app++) {
        for (const device_entry &device : household_devices()) {
            u32 own = app + 1000 * static_cast<u32>(device.ip.back() - '0');
            std::vector<unsigned char> message =
                accounting_message({application_word(own), start_mark | 7, 0, device.ip, "203.0.113.9", 1, 1});
            auto sent = steady_clock::now();
            if (!multicast(conntrack, group_new, message.data(), message.size()) || !told_of(subscriber, own))
                return false;
            took->push_back(std::chrono::duration_cast<microseconds>(steady_clock::now() - sent).count());
            usleep(5000);
        }
    }
    return true;
}

long long percentile_99(std::vector<long long> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() * 99 / 100];
}

} // namespace

attack_row flood_the_channel()
{
    constexpr u32 genuine = 200;
    child_process daemon(start_fast_daemon(100));
    if (!daemon_answers())
        return {"flood of the router channel", "", "the daemon does not serve", false};
    u32 before = daemon_counter("router_messages");
    nlk_host_msg message = host_message(1, "192.168.77.11", "02-00-5E-00-00-11"); // of a kind that changes nothing
    auto flood = [&] {
        send_router_message(runtime_directory, &message, sizeof message);
        // Where the channel was before.
        fd_guard fd(socket(AF_NETLINK, SOCK_RAW, NETLINK_USERSOCK));
        multicast(fd.get(), 17, &message, sizeof message);
    };
    child_process one(start_nobody(flood)), other(start_nobody(flood));
    u32 sent = 0;
    for (u32 i = 0; i < genuine; i++, usleep(5000))
        sent += send_router_message(runtime_directory, &message, sizeof message);
    comes_true([&] { return daemon_counter("router_messages") - before >= genuine; });
    u32 taken = daemon_counter("router_messages") - before;
    return {"flood of the router channel", std::to_string(genuine) + " genuine messages beside two flooders",
            std::to_string(genuine - taken) + " lost", sent == genuine && taken == genuine};
}

attack_row send_many_limits()
{
    child_process daemon(start_fast_daemon(20)); // a session lasts long enough to be told as a start
    if (!daemon_answers())
        return {"21,000 limits", "", "the daemon does not serve", false};
    fd_guard conntrack(open_conntrack()), subscriber(subscribe());
    const std::string &mac = household_devices()[0].mac;
    std::string text = "{\"device\":\"" + mac + "\",\"data\":[{}";
    for (int i = 1; i < 21000; i++)
        text += ",{}";
    text += "]}";
    std::atomic<bool> stop{false}, attacking{false};
    u32 sent = 0, refused = 0;
    std::thread attacker([&] {
        for (; !stop; usleep(20000)) {
            if (!attacking)
                continue;
            sent++;
            refused += call_daemon(request_socket_path, 10000, {11, mac.c_str(), text.c_str(), nullptr, 0}, nullptr) ==
                       request_refused;
        }
    });
    // In turns, so that what else the machine does meets both.
    std::vector<long long> quiet_hits, attacked_hits;
    bool told = true;
    for (u32 app = 100; app < 200; app += 10) {
        attacking = app % 20 != 0;
        told = told && measure_hits(conntrack.get(), subscriber.get(), app, attacking ? &attacked_hits : &quiet_hits);
    }
    stop = true;
    attacker.join();
    long long quiet = percentile_99(quiet_hits), attacked = percentile_99(attacked_hits);
    // Below that both are the scheduler's on a machine that has other work.
    constexpr long long scheduling = 10000;
    bool held = told && attacked <= std::max(2 * quiet, scheduling) && sent > 20 && refused == sent;
    return {"21,000 limits in a request", std::to_string(sent) + " requests",
            std::to_string(refused) + " refused; p99 of a hit " + std::to_string(quiet) + " us quiet, " +
                std::to_string(attacked) + " us attacked",
            held};
}
