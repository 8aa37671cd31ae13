// Attacks by number: router messages, and limits in one request.
#include "tests/system/attack/attack.h"

#include "common/guards.h"
#include "common/sec_plg_common.h"
#include "platform/linux/client/request_client.h"
#include "simulator/world/daemon_process.h"
#include "simulator/world/hit_latency.h"
#include "simulator/world/household_files.h"
#include "simulator/world/kernel_messages.h"

#include <algorithm>
#include <atomic>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

// Starts ten apps of every device, one after the other. False when a push did not come.
bool measure_hits(int conntrack, int subscriber, u32 first_app, std::vector<long long> *took)
{
    for (u32 app = first_app; app < first_app + 10; app++)
        for (const device_entry &device : household_devices()) {
            u32 own = app + 1000 * static_cast<u32>(device.ip.back() - '0');
            took->push_back(time_of_hit(conntrack, subscriber, device.ip, own));
            if (took->back() < 0)
                return false;
            usleep(5000);
        }
    return true;
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
    fd_guard conntrack(open_conntrack()), subscriber(subscribe_to_pushes());
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
    long long quiet = percentile(quiet_hits, 99), attacked = percentile(attacked_hits, 99);
    // Below that both are the scheduler's on a machine that has other work.
    constexpr long long scheduling = 10000;
    bool held = told && attacked <= std::max(2 * quiet, scheduling) && sent > 20 && refused == sent;
    return {"21,000 limits in a request", std::to_string(sent) + " requests",
            std::to_string(refused) + " refused; p99 of a hit " + std::to_string(quiet) + " us quiet, " +
                std::to_string(attacked) + " us attacked",
            held};
}
