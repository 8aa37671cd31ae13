// The real daemon, its real platform library and real netlink, in a network of their own; only the clock runs faster.
#include "simulator/player.h"
#include "simulator/world/daemon_process.h"
#include "simulator/world/household_files.h"
#include "simulator/world/kernel_messages.h"
#include "tests/system/inside_network.h"

#include "common/counters.h"
#include "common/guards.h"
#include "platform/linux/client/request_client.h"

#include <filesystem>
#include <functional>
#include <string.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int speed = 600;             // sleeps are as much shorter
constexpr long long noon = 1773489600; // a Saturday; no session of a test crosses the day's end
constexpr int an_hour = 3600000;       // for an answer

std::string why_not; // what this machine lacks for these tests

// The daemon in a household of two devices, serving.
class real_daemon : public testing::Test {
protected:
    void SetUp() override
    {
        if (!why_not.empty())
            GTEST_SKIP() << "NOT TESTED HERE, the real daemon over real netlink: " << why_not;
        home.start = now_by_the_clock();
        home.end = home.start + 8 * 60;
        home.apps = {{201, "Film Box", 3, home.start}, {401, "Chat Round", 2, home.start}};
        home.devices = {{"phone", "02-00-5E-00-00-11", "192.168.77.11", 1, 3, true},
                        {"tablet", "02-00-5E-00-00-12", "192.168.77.12", 1, 4, true}};
        // Nothing of the daemon before is left: not its pushes, not its settings, not its counters.
        std::filesystem::remove_all("/tmp/household");
        std::filesystem::remove(counters_path);
        ASSERT_TRUE(settle_neighbours(home.devices) && write_settings() && write_roster(home.devices) &&
                    write_catalogue(home.apps, home.start));
        daemon = start_daemon(DAEMON_PATH);
        ASSERT_GT(daemon, 0);
        ASSERT_TRUE(comes_true(daemon_serves));
    }

    // A report of a sanitizer ends the daemon with another status.
    void TearDown() override
    {
        if (daemon < 0)
            return;
        EXPECT_TRUE(daemon_runs(daemon));
        EXPECT_EQ(stop_daemon(daemon), status_after_sigterm);
    }

    void send_traffic(const std::vector<unsigned char> &message) const
    {
        EXPECT_TRUE(multicast(conntrack.get(), group_update, message.data(), message.size()));
    }

    template <typename message> void send_to_channel(const message &record, size_t size = sizeof(message)) const
    {
        EXPECT_TRUE(send_router_message(runtime_directory, &record, size));
    }

    // Waits a real minute at most; the clock of this process is the fast one.
    static bool comes_true(const std::function<bool()> &condition)
    {
        for (int i = 0; i < 6000 && !condition(); i++)
            sleep(6);
        return condition();
    }
    // Until the daemon has counted that far.
    static void expect_counter(const char *name, u32 least)
    {
        EXPECT_TRUE(comes_true([&] { return daemon_counter(name) >= least; })) << name << " " << daemon_counter(name);
    }

    accounting hit(u32 app, int device, bool starting) const
    {
        const std::string &ip = home.devices[static_cast<size_t>(device)].ip;
        return {application_word(app), app * 10 + (starting ? start_mark : 0), 0, ip, "203.0.113.9", 100, 5000};
    }

    scenario home;
    pid_t daemon = -1;
    fd_guard conntrack{open_conntrack()};
};

// Ticks come by themselves, two hundred a second. What is looked for is a sanitizer's report, or a daemon that stops answering.
TEST_F(real_daemon, survives_traffic_router_events_settings_and_ticks_at_once)
{
    const char *phone = home.devices[0].mac.c_str(), *tablet = home.devices[1].mac.c_str();
    std::string both = std::string("{\"device\":[\"") + phone + "\",\"" + tablet + "\"]}";
    std::string limits = std::string("{\"device\":\"") + phone +
                         "\",\"data\":[{\"class_type\":2,\"onoff\":1,\"use_time\":1,\"appid\":[201,401]}]}";
    appident_payment_notify_st switches = {"", 1, 1, 1, 1, 1};
    memcpy(switches.mac, phone, strlen(phone));
    u32 answered = 0;
    const std::function<void(int)> work[] = {
        [&](int round) {
            for (u32 app = 200; app < 230; app++)
                send_traffic(accounting_message(hit(app, round % 2, round % 3 == 0)));
        },
        [&](int round) {
            const device_entry &device = home.devices[static_cast<size_t>(round % 2)];
            send_to_channel(
                app_message(IGD_ACTION_ADD, application_word(301), start_mark | 0x10000 | 5u, device.ip, device.mac));
            if (round % 10 == 9)
                send_to_channel(host_message(round % 20 == 9 ? IGD_ACTION_DEL : IGD_ACTION_ADD, device.ip, device.mac));
        },
        [&](int round) {
            home.devices[1].role = round % 5 < 2 ? 0 : 1;
            write_roster(home.devices);
        },
        [&](int) {
            const client_request requests[] = {{6, phone, nullptr, nullptr, 0},          {8, both.c_str(), nullptr, nullptr, 0},
                                               {11, phone, limits.c_str(), nullptr, 0},  {12, phone, nullptr, nullptr, 0},
                                               {13, phone, nullptr, &switches, 1},       {14, phone, nullptr, &switches, 1},
                                               {11, tablet, limits.c_str(), nullptr, 0}, {7, tablet, nullptr, nullptr, 0}};
            client_answer answer = {};
            for (const client_request &one : requests)
                answered += call_daemon(request_socket_path, an_hour, one, &answer) == request_done;
        }};
    std::vector<std::thread> workers;
    for (const auto &one : work)
        workers.emplace_back([&one] {
            for (int round = 0; round < 200; round++, sleep(10))
                one(round);
        });
    for (std::thread &worker : workers)
        worker.join();
    EXPECT_GT(answered, 500u);
    EXPECT_GT(daemon_counter("hits_tracked"), 1000u);
    expect_counter("ticks", 200);
}

} // namespace

int main(int argc, char **argv)
{
    setenv("TZ", "UTC", 1);
    return run_tests_inside(argc, argv, fast_clock_words(noon, speed), &why_not, [](const std::string &program) {
        bool made = make_private_tmp({program, DAEMON_PATH}) && make_lan("192.168.77.1/24");
        return std::string(made ? "" : "the private network lacks something, see above");
    });
}
