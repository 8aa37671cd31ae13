// A home as it is found: a bridge, five hosts that ask a real dnsmasq for their addresses, real neighbours, and a daemon that
// nobody has set anything for. Only the daemon's clock runs faster.
#include "simulator/player.h"
#include "simulator/world/daemon_process.h"
#include "simulator/world/kernel_messages.h"
#include "tests/kit/waiting.h"
#include "tests/system/inside_network.h"

#include "common/guards.h"
#include "platform/linux/client/request_client.h"
#include "platform/linux/client/request_protocol.h"

#include <filesystem>
#include <fstream>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace {

constexpr int speed = 60; // sleeps are as much shorter; an hour of silence lasts a minute
constexpr long long noon = 1773489600;
constexpr int answer_milliseconds = 20000;

std::string why_not; // what this machine lacks for this test

struct host {
    const char *name;
    const char *mac;
    pid_t space; // a process that holds its network namespace
};
host hosts[] = {{"tablet", "00-16-3E-00-00-11", 0},
                {"console", "00-16-3E-00-00-12", 0},
                {"laptop", "00-16-3E-00-00-13", 0},
                {"phone", "02-00-5E-00-00-14", 0},
                {"telly", "00-16-3E-00-00-15", 0}};

bool run(const std::string &command)
{
    return system(("{ " + command + "; } >>/tmp/home.log 2>&1").c_str()) == 0;
}

// A child that ends with us; -1 when it cannot be made.
pid_t start(std::vector<std::string> words)
{
    fflush(nullptr);
    pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::vector<char *> raw;
    for (std::string &word : words)
        raw.push_back(word.data());
    raw.push_back(nullptr);
    execvp(raw[0], raw.data());
    _exit(127);
}

size_t times_in(const std::string &text, const std::string &part)
{
    size_t times = 0;
    for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size())
        ++times;
    return times;
}

std::string inside(const host &one, const std::string &command)
{
    return "nsenter --net=/proc/" + std::to_string(one.space) + "/ns/net " + command;
}

// Asks dnsmasq for an address, as who it says it is.
bool ask_for_address(const host &one, const std::string &as = "")
{
    return run(inside(one, std::string("udhcpc -i eth0 -n -q -t 10 -T 1 -s /tmp/take-lease -x hostname:") + one.name + as));
}

bool join(host *one, const std::string &port)
{
    one->space = start({"unshare", "--net", "sleep", "1000"});
    auto space_of = [](const std::string &process) {
        std::error_code failure;
        return std::filesystem::read_symlink("/proc/" + process + "/ns/net", failure);
    };
    std::string pid = std::to_string(one->space), mac = one->mac;
    if (!comes_true(10, [&] { return space_of(pid) != space_of("self"); }))
        return false;
    for (char &mark : mac)
        mark = mark == '-' ? ':' : mark;
    return run("ip link add " + port + " type veth peer name eth0 address " + mac + " netns " + pid) &&
           run("ip link set " + port + " master home0 up") && run(inside(*one, "ip link set lo up")) &&
           run(inside(*one, "ip link set eth0 up"));
}

// The LAN, which has no address yet, lesser ones, and a way to the world that must not be taken for it.
bool make_home()
{
    std::ofstream("/tmp/take-lease") << "#!/bin/sh\n[ \"$1\" = bound ] || exit 0\n"
                                        "ip addr flush dev \"$interface\"\nip addr add \"$ip/24\" dev \"$interface\"\n"
                                        "ip route add default via \"$router\"\n";
    std::filesystem::permissions("/tmp/take-lease", std::filesystem::perms::all);
    std::filesystem::create_directories("/var/lib/misc");
    for (const char *command :
         {"ip link set lo up", "ip link add br-lan type bridge",
          "ip link add lesser0 type dummy || ip link add lesser0 type veth peer name below0",
          "ip addr add 192.168.88.1/24 dev lesser0", "ip link set lesser0 up", "ip link add home0 type bridge",
          "ip link set home0 up", "ip link add wan0 type dummy || ip link add wan0 type veth peer name world0",
          "ip addr add 10.0.0.2/24 dev wan0", "ip link set wan0 up", "ip route add default via 10.0.0.1",
          "ip addr add fd00:77::1/64 dev home0 nodad"})
        if (!run(command))
            return false;
    // Only to save time, and only where it may be set: how long the kernel believes in a neighbour.
    for (const char *family : {"ipv4", "ipv6"})
        run(std::string("echo 2000 >/proc/sys/net/") + family + "/neigh/home0/base_reachable_time_ms");
    return true;
}

pid_t dhcp_server = -1;

bool give_the_lan_its_address()
{
    if (!run("ip addr add 192.168.77.1/24 dev home0"))
        return false;
    dhcp_server = start({"dnsmasq", "--keep-in-foreground", "--conf-file=/dev/null", "--port=0", "--interface=home0",
                         "--bind-interfaces", "--dhcp-range=192.168.77.50,192.168.77.150,1h", "--dhcp-authoritative",
                         "--no-ping", "--user=root", "--pid-file"});
    return true;
}

pid_t start_with_fast_clock()
{
    std::vector<std::string> words = fast_clock_words(noon, speed);
    words.push_back("printenv");
    words.push_back("LD_PRELOAD");
    std::string command;
    for (const std::string &word : words)
        command += "'" + word + "' ";
    run(command + ">/tmp/preload");
    std::string library = text_of("/tmp/preload");
    // In front of the daemon alone, so that the process we started is the daemon.
    std::vector<std::string> daemon = {"env",
                                       "LD_PRELOAD=" + library.substr(0, library.find('\n')),
                                       "FAKETIME=" + words[3],
                                       "sh",
                                       "-c",
                                       "exec " DAEMON_PATH " 2>/tmp/daemon.err"};
    return start(daemon);
}

json_tree ask(u32 id, const std::string &text = "")
{
    client_request request = {};
    request.id = id;
    request.text = text.c_str();
    client_answer answer = {};
    if (call_daemon(request_socket_path, answer_milliseconds, request, &answer) != request_done)
        return nullptr;
    return json_tree(answer.text ? cJSON_Parse(answer.text.get()) : cJSON_CreateTrue());
}

std::string member(const cJSON *object, const char *key)
{
    const cJSON *item = cJSON_GetObjectItem(object, key);
    return cJSON_IsString(item) ? item->valuestring : cJSON_IsBool(item) ? (cJSON_IsTrue(item) ? "true" : "false") : "";
}

// One member of what is listed of a device, "" while it is not listed.
std::string listed(const char *mac, const char *key)
{
    json_tree answer = ask(request_list_devices);
    const cJSON *device = nullptr;
    cJSON_ArrayForEach(device, cJSON_GetObjectItem(answer.get(), "devices")) {
        if (member(device, "mac") == mac)
            return member(device, key);
    }
    return "";
}

std::string daemon_log()
{
    return text_of(daemon_log_path);
}

void use_app(const std::string &ip)
{
    static fd_guard conntrack(open_conntrack());
    std::vector<unsigned char> message =
        accounting_message({application_word(1001), 7 + start_mark, 0, ip, "203.0.113.9", 100, 5000});
    EXPECT_TRUE(multicast(conntrack.get(), group_new, message.data(), message.size()));
}

// Until a hit from there is recorded.
bool is_tracked(const std::string &ip)
{
    u32 before = daemon_counter("hits_tracked");
    return comes_true(20, [&] {
        use_app(ip);
        return daemon_counter("hits_tracked") > before;
    });
}

class home_network : public testing::Test {
protected:
    void SetUp() override
    {
        if (!why_not.empty())
            GTEST_SKIP() << "NOT TESTED HERE, a home as it is found: " << why_not;
        ASSERT_TRUE(make_home()) << text_of("/tmp/home.log");
        for (size_t i = 0; i < std::size(hosts); ++i)
            ASSERT_TRUE(join(&hosts[i], "port" + std::to_string(i))) << text_of("/tmp/home.log");
        daemon = start_with_fast_clock();
        ASSERT_TRUE(comes_true(60, [] { return times_in(text_of("/tmp/daemon.err"), "the LAN is lesser0") == 1; }));
        ASSERT_TRUE(give_the_lan_its_address()) << text_of("/tmp/home.log");
        ASSERT_TRUE(comes_true(60, daemon_serves)) << text_of("/tmp/daemon.err");
        for (const host &one : hosts)
            ASSERT_TRUE(ask_for_address(one)) << text_of("/tmp/home.log");
    }

    void TearDown() override
    {
        // It takes another user's rights at its start, and so no longer ends with its parent.
        if (dhcp_server > 0)
            kill(dhcp_server, SIGKILL);
        if (daemon < 0)
            return;
        EXPECT_TRUE(daemon_runs(daemon));
        EXPECT_EQ(stop_daemon(daemon), status_after_sigterm);
    }

    pid_t daemon = -1;
};

TEST_F(home_network, devices_are_found_named_tracked_and_followed)
{
    for (const host &one : hosts)
        EXPECT_TRUE(comes_true(60, [&] { return listed(one.mac, "name") == one.name; })) << one.name;
    EXPECT_TRUE(comes_true(20, [] { return listed(hosts[3].mac, "on_line") == "true"; }));
    EXPECT_EQ(listed(hosts[0].mac, "name_from") + " " + listed(hosts[0].mac, "private_mac"), "lease false");
    EXPECT_EQ(listed(hosts[3].mac, "private_mac"), "true");
    EXPECT_EQ(member(cJSON_GetObjectItem(ask(request_list_devices).get(), "lan"), "interface"), "home0");
    EXPECT_EQ(
        times_in(text_of("/tmp/daemon.err"), "the LAN is home0: it has a private IPv4 address and no default route, the first"),
        1u);

    // Seen, not tracked, until somebody gives a role.
    const host &tablet = hosts[0], &telly = hosts[4];
    std::string address = listed(tablet.mac, "address");
    use_app(address);
    EXPECT_TRUE(comes_true(20, [] { return daemon_counter("hits_unknown_device") > 0; }));
    EXPECT_TRUE(ask(request_change_device, std::string(R"({"mac":")") + tablet.mac + R"(","name":"Ben's tablet","role":1})"));
    EXPECT_EQ(listed(tablet.mac, "name"), "Ben's tablet");
    const std::string come = std::string("add online role:1 mac:") + tablet.mac;
    const std::string gone = std::string("device offline: ") + tablet.mac;
    EXPECT_TRUE(comes_true(20, [&] { return times_in(daemon_log(), come) == 1; }));
    EXPECT_TRUE(is_tracked(address));

    // The telly goes on with IPv6 alone, and so stays when the other leaves.
    ASSERT_TRUE(run(inside(telly, "ip -4 addr flush dev eth0")) &&
                run(inside(telly, "ip addr add fd00:77::15/64 dev eth0 nodad")) &&
                run("bash -c 'echo >/dev/udp/fd00:77::15/9'"))
        << text_of("/tmp/home.log");
    // It leaves: away at first, off line after an hour, and the daemon is told.
    ASSERT_TRUE(run(inside(tablet, "ip link set eth0 down")));
    EXPECT_TRUE(comes_true(90, [&] { return listed(tablet.mac, "away") == "true"; }));
    EXPECT_EQ(times_in(daemon_log(), gone), 0u);
    EXPECT_TRUE(comes_true(180, [&] { return times_in(daemon_log(), gone) == 1; }));
    EXPECT_EQ(listed(tablet.mac, "on_line") + listed(telly.mac, "on_line"), "falsetrue");

    // It comes back as somebody whom dnsmasq has not met, and so gets another address.
    ASSERT_TRUE(run(inside(tablet, "ip link set eth0 up")));
    ASSERT_TRUE(ask_for_address(tablet, " -x 0x3d:0102030405")) << text_of("/tmp/home.log");
    EXPECT_TRUE(
        comes_true(60, [&] { return listed(tablet.mac, "on_line") == "true" && listed(tablet.mac, "address") != address; }));
    EXPECT_TRUE(comes_true(20, [&] { return times_in(daemon_log(), come) == 2; }));
    EXPECT_TRUE(is_tracked(listed(tablet.mac, "address")));

    // What the person said and what was seen outlive the daemon, each in its file.
    const std::string roster = text_of("/var/lib/appident/roster.json");
    EXPECT_EQ(times_in(roster, "\"mac\""), 1u) << roster;
    EXPECT_TRUE(
        comes_true(60, [] { return times_in(text_of("/var/lib/appident/observed.json"), "\"mac\"") == std::size(hosts); }));
    EXPECT_EQ(stop_daemon(daemon), status_after_sigterm);
    // The next start meets other DHCP servers' leases, one of which the settings name.
    std::filesystem::remove("/var/lib/misc/dnsmasq.leases");
    std::filesystem::create_directories("/var/lib/kea");
    std::filesystem::create_directories("/var/lib/dhcp");
    std::ofstream("/var/lib/kea/kea-leases4.csv")
        << "address,hwaddr,client_id,valid_lifetime,expire,subnet_id,fqdn_fwd,fqdn_rev,"
           "hostname,state,user_context,pool_id\n"
           "192.168.77.60,00:16:3e:00:00:12,,4000,1800000000,1,0,0,games,0,,0\n";
    std::ofstream("/var/lib/dhcp/dhcpd.leases") << "# comment\nlease 192.168.77.61 {\n  starts 3 2026/03/11 20:00:00;\n"
                                                   "  hardware ethernet 00:16:3e:00:00:15;\n  uid \"\\001\";\n"
                                                   "  client-hostname \"screen\";\n}\n";
    std::ofstream("/tmp/own.leases") << "1800000000 02:00:5e:00:00:14 192.168.77.62 handy *\n";
    std::ofstream("/tmp/settings.json") << R"({"leases":"/tmp/own.leases"})";
    setenv("APPIDENT_PLATFORM_SETTINGS", "/tmp/settings.json", 1);
    std::filesystem::remove("/tmp/.appident.counters");
    daemon = start_with_fast_clock();
    ASSERT_TRUE(comes_true(60, daemon_serves));
    EXPECT_EQ(listed(tablet.mac, "name") + ", " + listed(hosts[2].mac, "name"), "Ben's tablet, laptop");
    std::filesystem::create_directories("/var/lib/NetworkManager");
    std::ofstream("/var/lib/NetworkManager/dnsmasq-home0.leases") << "1800000000 00:16:3e:00:00:13 192.168.77.63 notes *\n";
    for (const auto &[place, name] :
         {std::pair(1, "games"), std::pair(2, "notes"), std::pair(3, "handy"), std::pair(4, "screen")})
        EXPECT_TRUE(comes_true(20, [&, at = place, wanted = name] { return listed(hosts[at].mac, "name") == wanted; })) << name;
    EXPECT_EQ(text_of("/var/lib/appident/roster.json"), roster);
}

// A place for all that the daemon and dnsmasq keep by default.
bool make_private_places()
{
    for (const char *place : {"/var/lib", "/run"})
        if (mount("tmpfs", place, "tmpfs", 0, "mode=755,size=16m") != 0)
            return false;
    if (std::filesystem::exists("/etc/appident"))
        return mount("tmpfs", "/etc/appident", "tmpfs", 0, "mode=755") == 0;
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    return run_tests_inside(argc, argv, {}, &why_not, [](const std::string &program) -> std::string {
        if (!make_private_tmp({program, DAEMON_PATH}) || !make_private_places())
            return "no private directories, see above";
        bool tools = run("for tool in ip dnsmasq udhcpc nsenter faketime; do command -v $tool || exit 1; done");
        return tools ? "" : "one of ip, dnsmasq, udhcpc, nsenter, faketime is missing";
    });
}
