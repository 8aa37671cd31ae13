// The platform library for stock Linux, met through its operations: real sockets, real files, the kernel's neighbours. Each
// program runs in a network namespace and a directory of its own.
#include "common/counter_page.h"
#include "igd/igd_lib.h"
#include "platform/linux/client/request_client.h"
#include "platform/linux/client/request_protocol.h"
#include "platform/linux/message_channel.h"
#include "platform/linux/neighbour_table.h"
#include "tests/kit/kernel_messages.h"
#include "tests/kit/private_network.h"

#include <arpa/inet.h>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <poll.h>
#include <random>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>

using namespace std::literals;

static std::string home; // holds settings.json, state/, run/
static std::string socket_path;
static bool own_network = false;

static void write_file(const std::string &name, const std::string &text)
{
    std::ofstream(home + name + ".new") << text;
    std::filesystem::rename(home + name + ".new", home + name);
}

static std::string read_file(const std::string &name)
{
    std::ifstream file(home + name);
    return {std::istreambuf_iterator<char>(file), {}};
}

static mode_t mode_of(const std::string &path)
{
    struct stat about = {};
    return stat(path.c_str(), &about) == 0 ? about.st_mode & 07777 : 0;
}

static u32 counter_of(const std::string &name)
{
    counter_reading read[64];
    int count = counter_page_read((home + "run/platform.counters").c_str(), read, 64, nullptr);
    for (int i = 0; i < count; ++i)
        if (name == read[i].name)
            return read[i].value;
    ADD_FAILURE() << "no counter " << name;
    return 0;
}

template <typename condition> static bool comes_true(condition holds)
{
    for (int i = 0; i < 500 && !holds(); ++i)
        std::this_thread::sleep_for(10ms);
    return holds();
}

// What the handler was given, in words, and what it is to answer.
static std::vector<std::string> calls;
static std::string result_text;
static int result_code = 0;

static int record_request(unsigned int id, void *pa, void *pb, void *pc)
{
    request_shape shape = shape_of_request(id);
    auto *text = static_cast<char *>(pa);
    auto *switches = static_cast<appident_payment_notify_st *>(pa);
    auto *length = static_cast<unsigned int *>(pc);
    calls.push_back(std::to_string(id));
    if (shape == request_switches) {
        calls.back() += " "s + switches->mac + " " + std::to_string(reinterpret_cast<uintptr_t>(pb)) + (pc ? " pc" : "");
        switches->applepay += 7;
    } else if (shape == request_store || shape == request_report) {
        calls.back() += " "s + (shape == request_store ? text : "") + static_cast<char *>(pb) + " " + std::to_string(*length);
    } else if (pb) {
        calls.back() += " pb";
    }
    if (shape == request_report) {
        snprintf(text, *length, "%s", result_text.c_str());
        *length = static_cast<unsigned int>(result_text.size());
    }
    return result_code;
}

// Serves like the daemon's loop while the other thread asks.
template <typename question> static auto serve_during(int server, question ask)
{
    auto asking = std::async(std::launch::async, ask);
    for (pollfd ready = {server, POLLIN, 0}; asking.wait_for(0s) != std::future_status::ready;)
        if (poll(&ready, 1, 20) == 1)
            ipc_server_accept2();
    return asking.get();
}

static int connect_to(const std::string &path, int type)
{
    int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0)
        return fd;
    close(fd);
    return -1;
}

// In a child that is nobody in the given groups; its exit code.
static int as_nobody(std::vector<gid_t> groups, const std::function<int()> &act)
{
    pid_t child = fork();
    if (child == 0)
        _exit(setgroups(groups.size(), groups.data()) != 0 || setgid(65534) != 0 || setuid(65534) != 0 ? 99 : act());
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

TEST(Requests, EachIdBringsTheWordsOfItsTable)
{
    std::ofstream(socket_path) << "left over";
    int server = nt_ipcserver_init2(socket_path.c_str(), record_request);
    ASSERT_GE(server, 0);
    EXPECT_EQ(mode_of(socket_path), 0660u);
    appident_payment_notify_st switches = {"AA-BB-CC-00-00-01", 1, 2, 3, 4, 5};
    client_answer answer;
    auto ask = [&](client_request request) {
        return serve_during(server, [&] { return call_daemon(socket_path.c_str(), 2000, request, &answer); });
    };
    result_text = "{\"err_no\":\"0\"}";
    const struct {
        client_request request;
        const char *given;
    } table[] = {{{6, switches.mac, nullptr, nullptr, 0}, "6 AA-BB-CC-00-00-01 65536"},
                 {{7, switches.mac, nullptr, nullptr, 0}, "7 AA-BB-CC-00-00-01 65536"},
                 {{8, "{}", nullptr, nullptr, 0}, "8 {} 65536"},
                 {{9, "{}", nullptr, nullptr, 0}, "9 {} 65536"},
                 {{11, switches.mac, "{\"data\":[]}", nullptr, 0}, "11 {\"data\":[]}AA-BB-CC-00-00-01 11"},
                 {{12, switches.mac, nullptr, nullptr, 0}, "12 AA-BB-CC-00-00-01 65536"},
                 {{13, nullptr, nullptr, &switches, 2}, "13 AA-BB-CC-00-00-01 2"},
                 {{14, nullptr, nullptr, &switches, 3}, "14 AA-BB-CC-00-00-01 3"}};
    for (auto &[request, given] : table) {
        answer.text.reset();
        EXPECT_EQ(ask(request), request_done) << given;
        EXPECT_EQ(calls.back(), given);
        EXPECT_EQ(answer.text ? answer.text.get() : "", shape_of_request(request.id) == request_report ? result_text : "");
    }
    EXPECT_EQ(switches.applepay, 19u);
    result_text.assign(request_text_limit + 5, 'x');
    EXPECT_EQ(ask({6, "m", nullptr, nullptr, 0}), request_done);
    EXPECT_EQ(strlen(answer.text.get()), request_text_limit - 1);
    EXPECT_EQ(answer.full_length, request_text_limit + 5);
    result_text = "";
    EXPECT_EQ(ask({6, "m", nullptr, nullptr, 0}), request_done);
    EXPECT_FALSE(answer.text);
    result_code = -1;
    for (unsigned int id : {0u, 6u, 10u, 14u, 99u})
        EXPECT_EQ(ask({id, "m", nullptr, &switches, 1}), request_refused) << id;
    EXPECT_EQ(calls.back(), "99");
    EXPECT_EQ(call_daemon((home + "nobody").c_str(), 100, {6, "m", nullptr, nullptr, 0}, nullptr), request_unreachable);
}

TEST(Requests, NonsenseAndSilenceCostNobodyElseAnything)
{
    int server = nt_ipcserver_init2(socket_path.c_str(), record_request);
    ASSERT_GE(server, 0);
    calls.clear();
    auto packet_of = [](request_head head, const std::string &text = "m") {
        return std::string(reinterpret_cast<char *>(&head), sizeof head) + text;
    };
    const request_head good = {request_magic, 6, 0, 100, 1, 0};
    const std::string bad[] = {packet_of(good).substr(0, 10),
                               packet_of(good, "more"),
                               packet_of(good, "\0"s),
                               std::string(request_packet_limit + 1, 'x'),
                               packet_of({request_magic, 6, 0, 100, 0xFFFFFFFF, 2}),
                               packet_of({request_magic, 6, 0, request_text_limit + 1, 1, 0}),
                               packet_of({request_magic, 13, 1, 100, 1, 0}),
                               packet_of({answer_magic, 6, 0, 100, 1, 0})};
    char answer;
    for (const std::string &packet : bad) {
        fd_guard client(connect_to(socket_path, SOCK_SEQPACKET));
        ASSERT_EQ(send(client.get(), packet.data(), packet.size(), 0), static_cast<ssize_t>(packet.size()));
        EXPECT_EQ(ipc_server_accept2(), -1);
        EXPECT_LE(recv(client.get(), &answer, 1, MSG_DONTWAIT), 0);
    }
    EXPECT_EQ(counter_of("requests_malformed"), std::size(bad));
    close(connect_to(socket_path, SOCK_SEQPACKET));
    EXPECT_EQ(ipc_server_accept2(), -1);
    EXPECT_EQ(counter_of("requests_vanished"), 1u);

    // More silent clients than places; whoever asks is still served, and in the end all are let go.
    std::vector<std::unique_ptr<fd_guard>> silent;
    for (int i = 0; i < 20; ++i) {
        silent.push_back(std::make_unique<fd_guard>(connect_to(socket_path, SOCK_SEQPACKET)));
        EXPECT_EQ(ipc_server_accept2(), -1);
    }
    EXPECT_EQ(counter_of("requests_crowded_out"), 4u);
    EXPECT_TRUE(calls.empty());
    serve_during(server, [] { return call_daemon(socket_path.c_str(), 2000, {6, "m", nullptr, nullptr, 0}, nullptr); });
    EXPECT_EQ(calls.size(), 1u);
    EXPECT_TRUE(comes_true([&] {
        ipc_server_accept2();
        return counter_of("requests_too_slow") + counter_of("requests_crowded_out") == 20;
    }));
    for (const auto &client : silent)
        EXPECT_EQ(recv(client->get(), &answer, 1, MSG_DONTWAIT), 0);

    // No descriptor is left for the next one: turned away, and the loop is not woken again for it.
    fd_guard last(connect_to(socket_path, SOCK_SEQPACKET));
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    fd_guard lowest(dup(last.get()));
    rlimit used_up = {static_cast<rlim_t>(lowest.get()), before.rlim_max};
    close(lowest.release());
    setrlimit(RLIMIT_NOFILE, &used_up);
    EXPECT_EQ(ipc_server_accept2(), -1);
    setrlimit(RLIMIT_NOFILE, &before);
    pollfd ready = {server, POLLIN, 0};
    EXPECT_EQ(poll(&ready, 1, 0), 0);
    EXPECT_EQ(recv(last.get(), &answer, 1, MSG_DONTWAIT), 0);
    EXPECT_EQ(counter_of("no_descriptor"), 1u);
}

TEST(Requests, OnlyRootOurselvesAndTheGroupMayAsk)
{
    if (geteuid() != 0 || as_nobody({}, [] { return 0; }) != 0)
        GTEST_SKIP() << "cannot become another user";
    int server = nt_ipcserver_init2(socket_path.c_str(), record_request);
    chmod(socket_path.c_str(), 0666); // leaves the peer check alone to decide
    chmod(home.c_str(), 0755);
    auto ask = [] { return static_cast<int>(call_daemon(socket_path.c_str(), 2000, {10, "m", nullptr, nullptr, 0}, nullptr)); };
    calls.clear();
    EXPECT_EQ(serve_during(server, [&] { return as_nobody({}, ask); }), request_refused);
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(counter_of("peers_refused"), 1u);
    serve_during(server, [&] { return as_nobody({5, getegid()}, ask); });
    EXPECT_EQ(calls.size(), 1u);
}

TEST(RouterMessages, AreTakenByteForByteFromRootOnly)
{
    if (!own_network)
        GTEST_SKIP() << "no network namespace";
    igd_netlink_handler channel;
    ASSERT_EQ(__nlk_msg_init(&channel, 176, 0, 0), 0);
    char buffer[sizeof(nlk_sys_msg)];
    EXPECT_EQ(nlk_msg_recv(&channel, buffer, sizeof buffer), -1);
    nlk_sys_msg event = app_message(0, application_word(1001), 5, "192.168.7.5", "02-00-00-00-00-05");
    auto send_event = [&] {
        fd_guard sender(open_netlink(NETLINK_USERSOCK));
        return multicast(sender.get(), message_channel_group, &event, sizeof event) ? 0 : 1;
    };
    ASSERT_EQ(send_event(), 0);
    ASSERT_EQ(nlk_msg_recv(&channel, buffer, sizeof buffer), static_cast<int>(sizeof event));
    EXPECT_EQ(memcmp(buffer, &event, sizeof event), 0);
    ASSERT_EQ(send_event(), 0);
    EXPECT_EQ(nlk_msg_recv(&channel, buffer, 40), -1);
    EXPECT_EQ(counter_of("router_truncated"), 1u);
    if (as_nobody({}, send_event) == 0) {
        EXPECT_EQ(nlk_msg_recv(&channel, buffer, sizeof buffer), -1);
        EXPECT_EQ(counter_of("router_foreign"), 1u);
    }
    close(channel.sock_fd);
}

static std::string mac_at(const std::string &ip)
{
    unsigned char mac[6] = {};
    return get_mac_by_ip(inet_addr(ip.c_str()), mac) == 0 ? std::string(reinterpret_cast<char *>(mac), 6) : "";
}

TEST(Neighbours, FollowTheKernelWithoutAskingIt)
{
    if (!own_network)
        GTEST_SKIP() << "no network namespace";
    ASSERT_TRUE(make_lan("192.168.7.1/24"));
    nl_sock *kernel = nl_socket_alloc();
    nl_connect(kernel, NETLINK_ROUTE);
    for (const char *type : {"bridge", "dummy", "ifb"}) { // whichever this kernel has
        rtnl_link *link = rtnl_link_alloc();
        rtnl_link_set_name(link, "elsewhere");
        rtnl_link_set_type(link, type);
        rtnl_link_set_flags(link, IFF_UP);
        rtnl_link_add(kernel, link, NLM_F_CREATE | NLM_F_EXCL);
        rtnl_link_put(link);
    }
    auto tell_kernel = [&](int type, const char *ip, const std::string &mac, uint16_t state, const char *where = "br-lan") {
        nl_msg *message = nlmsg_alloc_simple(type, type == RTM_NEWNEIGH ? NLM_F_CREATE | NLM_F_REPLACE : 0);
        ndmsg about = {AF_INET, 0, 0, static_cast<int>(if_nametoindex(where)), state, 0, 0};
        nlmsg_append(message, &about, sizeof about, NLMSG_ALIGNTO);
        nla_put_u32(message, NDA_DST, inet_addr(ip));
        if (!mac.empty())
            nla_put(message, NDA_LLADDR, 6, mac.data());
        EXPECT_EQ(nl_send_sync(kernel, message), 0) << ip;
    };
    const std::string tablet = "\2\0\0\0\0\5"s, phone = "\2\0\0\0\0\6"s, zero(6, '\0');
    tell_kernel(RTM_NEWNEIGH, "192.168.7.5", tablet, NUD_PERMANENT);
    nos_lan_cfg lan = {};
    ASSERT_EQ(get_lan_config(&lan), 0);
    EXPECT_EQ(lan.ip.s_addr, inet_addr("192.168.7.1"));
    EXPECT_EQ(lan.mask.s_addr, inet_addr("255.255.255.0"));
    EXPECT_NE(memcmp(lan.mac, zero.data(), 6), 0);
    EXPECT_EQ(mac_at("192.168.7.5"), tablet) << "known before we started";
    // Refused by the kernel's word, at first asked for, then known to be unknown.
    tell_kernel(RTM_NEWNEIGH, "192.168.7.6", zero, NUD_PERMANENT);
    tell_kernel(RTM_NEWNEIGH, "192.168.7.7", phone, NUD_FAILED);
    for (const char *ip : {"192.168.7.6", "192.168.7.7", "192.168.7.8", "0.0.0.0"})
        EXPECT_EQ(mac_at(ip), "") << ip;
    // From here on notifications alone must do.
    EXPECT_TRUE(comes_true([] { return mac_at("192.168.7.5") != ""; }));
    u32 asked = counter_of("neighbours_asked");
    tell_kernel(RTM_NEWNEIGH, "192.168.7.8", phone, NUD_REACHABLE);
    tell_kernel(RTM_NEWNEIGH, "192.168.7.5", phone, NUD_PERMANENT);
    for (const char *ip : {"192.168.7.8", "192.168.7.5"}) // a stranger who became known, another MAC
        EXPECT_TRUE(comes_true([&] { return mac_at(ip) == phone; })) << ip;
    tell_kernel(RTM_DELNEIGH, "192.168.7.8", "", 0);
    tell_kernel(RTM_NEWNEIGH, "192.168.7.9", tablet, NUD_PERMANENT, "elsewhere");
    tell_kernel(RTM_NEWNEIGH, "192.168.7.10", tablet, NUD_PERMANENT);
    EXPECT_TRUE(comes_true([&] { return mac_at("192.168.7.10") == tablet; }));
    // The last one may have been asked for; the notification of the one that is gone may still be on its way.
    EXPECT_TRUE(comes_true([&] { return mac_at("192.168.7.8") + mac_at("192.168.7.9") == ""; })) << "gone, not on the LAN";
    EXPECT_LE(counter_of("neighbours_asked"), asked + 3);
    // A flood of strangers asks no more than so many questions.
    for (u32 i = 0; i < 5000; ++i)
        mac_at(inet_ntoa({htonl(0x0A000001 + i)}));
    EXPECT_GE(counter_of("neighbours_not_asked"), 4000u);
    nl_socket_free(kernel);
}

TEST(Neighbours, TableIsWholeWhileItIsReadAndRewritten)
{
    std::minstd_rand draw;
    std::vector<u32> addresses(neighbour_most); // scattered, so that some share a home
    std::generate(addresses.begin(), addresses.end(), [&] { return static_cast<u32>(draw() * 2 + draw() % 2); });
    auto store = [&](u32 ip, u32 round) {
        unsigned char mark = static_cast<unsigned char>(draw()), mac[6] = {mark, static_cast<unsigned char>(ip), 1, 2, 3, mark};
        return neighbour_store(ip, mac, round);
    };
    auto found = [](u32 ip) {
        unsigned char mac[6] = {};
        bool known = neighbour_find(ip, mac);
        return !known ? "none" : mac[0] == mac[5] && mac[1] == (ip & 0xFF) ? "whole" : "torn";
    };
    std::atomic<bool> stop{false};
    int torn = 0;
    std::thread reader([&] {
        for (size_t i = 0; !stop; ++i)
            torn += *found(addresses[i % 8]) == 't';
    });
    for (int step = 0; step < 200000; ++step) {
        u32 ip = addresses[draw() % (step % 2 ? 8 : addresses.size())];
        mutex_guard held(neighbour_writers);
        step % 16 == 0 ? neighbour_forget(ip) : static_cast<void>(store(ip, 0));
    }
    stop = true;
    reader.join();
    EXPECT_EQ(torn, 0);
    for (size_t i = 0; i < addresses.size(); ++i)
        EXPECT_TRUE(store(addresses[i], i % 2));
    EXPECT_FALSE(store(1, 1)) << "full";
    neighbour_sweep(1); // whoever is not of that round goes
    for (size_t i = 0; i < addresses.size(); ++i)
        EXPECT_STREQ(found(addresses[i]), i % 2 == 1 ? "whole" : "none") << i;
}

static std::string ask_service(const char *path, const char *query)
{
    char *answer = nullptr;
    int result = call_cgi(path, query, &answer);
    heap_text owned(answer);
    EXPECT_EQ(result != 0, answer != nullptr);
    return answer ? answer : "(none)";
}

TEST(DeviceServices, AnswerFromTheRosterAndTheCatalogueAsTheyAreNow)
{
    const char *online = "/app/devices/webs/getdeviceslist.cgi", *offline = "/app/devices/webs/get_offline_dev_list.cgi";
    const char *apps = "/app/ib_manager/webs/get_user_apps.cgi";
    unsigned char tablet[6] = {0xAA, 0, 0, 0, 0, 1};
    int homeid = 0, forkid = 0;
    EXPECT_EQ(ask_service(online, "noneed=noneed") + ask_service(apps, nullptr) + ask_service("/else", ""),
              "(none)(none)(none)");
    EXPECT_EQ(get_group_by_mac(tablet, &homeid, &forkid), -1);
    write_file("state/roster.json",
               R"({"home":7,"devices":[{"mac":"aa:00:00:00:00:01","role":1,"name":"Ünïçödé tablet of somebodyß","group":5},
                   {"mac":"AA-00-00-00-00-02","role":0,"online":false},{"mac":"AA-00-00-00-00-01","role":9},{"mac":"AA-00"},
                   {"mac":"0A-00-00-00-00-03","role":"2","online":true}]})");
    auto data = [](const std::string &entries) { return R"({"err_no":"0","data":[)" + entries + "]}"; };
    const std::string first = R"({"mac":"AA-00-00-00-00-01","role":"1"})", third = R"({"mac":"0A-00-00-00-00-03","role":"0"})";
    EXPECT_EQ(ask_service(online, "noneed=noneed"), data(first + "," + third));
    EXPECT_EQ(ask_service(online, "mac=AA-00-00-00-00-01"), data(first));
    for (const char *query : {"mac=AA-00-00-00-00-02", "mac=AA-00-00-00-00-09", "mac="})
        EXPECT_EQ(ask_service(online, query), data(""));
    EXPECT_EQ(ask_service(offline, ""), data(R"({"mac":"AA-00-00-00-00-02","role":"0"})"));
    EXPECT_EQ(counter_of("roster_entries_refused"), 2u);
    nos_hostname_cfg names = {};
    memcpy(names.mac, tablet, 6);
    EXPECT_EQ(nos_hostname_action(&names), 0);
    EXPECT_STREQ(names.s_name, "Ünïçödé tablet of somebody");
    EXPECT_EQ(get_group_by_mac(tablet, &homeid, &forkid), 0);
    EXPECT_EQ(homeid * 100 + forkid, 705);

    // Half a roster, none, or one too deep: the last good one stays, and each change for the worse is counted once.
    u32 unreadable = counter_of("roster_unreadable");
    for (const std::string &bad : {std::string(R"({"devices":[{"mac":)"), std::string("[]"), std::string(40000, '[')}) {
        write_file("state/roster.json", bad);
        ask_service(offline, "");
        EXPECT_NE(ask_service(offline, "").find("AA-00-00-00-00-02"), std::string::npos);
        EXPECT_EQ(counter_of("roster_unreadable"), ++unreadable);
    }
    write_file("state/roster.json", R"({"devices":[]})");
    EXPECT_EQ(ask_service(offline, ""), data(""));
    write_file("state/catalogue.json", R"({"data":[{"class_type":"1","appid":[1001,"x",1002]},{"class_type":2,"appid":[1]},
                   {"class_type":"13","appid":[]}],"names":{"1001":"Video"}})");
    EXPECT_EQ(ask_service(apps, nullptr), data(R"({"class_type":"1","appid":[1001,1002]},{"class_type":"13","appid":[]})"));
}

static std::pair<std::string, u64> run_and_seq(const std::string &line)
{
    json_tree read(cJSON_Parse(line.c_str()));
    const char *run = cJSON_GetStringValue(cJSON_GetObjectItem(read.get(), "run"));
    return {run ? run : "", static_cast<u64>(cJSON_GetNumberValue(cJSON_GetObjectItem(read.get(), "seq")))};
}

TEST(Pushes, ReachTheSpoolAndEverySubscriberAndNobodyWaits)
{
    ASSERT_GE(nt_ipcserver_init2(socket_path.c_str(), record_request), 0);
    fd_guard reader(connect_to(home + "run/pushes.sock", SOCK_STREAM));
    fd_guard stuck(connect_to(home + "run/pushes.sock", SOCK_STREAM));
    ASSERT_GE(stuck.get(), 0);
    std::string text = R"({"endmac":"AA-00-00-00-00-01","sumtime":"600"})";
    EXPECT_EQ(new_push_msg(1008, text.c_str(), 77), 0);
    text.assign(text.size(), '!'); // the caller's again
    EXPECT_EQ(new_push_msg(1023, "no \"JSON\"\n", 0), 0);
    app_info_sync_st status = {1001, 0, 2, 1700000000, {0xAA, 0, 0, 0, 0, 1}};
    EXPECT_EQ(app_info_to_devpush(&status, 1), 0);
    FILE *lines = fdopen(dup(reader.get()), "r");
    std::string run;
    u64 seq = 0;
    for (
        const char *wanted :
        {R"("code":1008,"occur_time":77,"data":{"endmac":"AA-00-00-00-00-01","sumtime":"600"}})",
         R"("code":1023,"occur_time":0,"data":"no \"JSON\"\n"})",
         R"("code":0,"occur_time":0,"data":[{"mac":"AA-00-00-00-00-01","app_id":1001,"class_type":0,"app_status":2,"timestamp":1700000000}]})"}) {
        char line[4096] = "";
        ASSERT_TRUE(fgets(line, sizeof line, lines));
        EXPECT_EQ(strstr(line, "\"code\""), wanted + "\n"s);
        auto [of, number] = run_and_seq(line);
        EXPECT_EQ(number, ++seq);
        EXPECT_TRUE(run.empty() || run == of) << of;
        run = of;
    }
    EXPECT_EQ(run.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(run.size(), 16u);
    fclose(lines);

    // Beyond what the spool and the subscriber who does not read can hold.
    const std::string large = "\"" + std::string(2000, 'x') + "\"";
    u32 accepted = 3;
    for (int i = 0; i < 2000; ++i)
        accepted += new_push_msg(1008, large.c_str(), 0) == 0;
    EXPECT_EQ(new_push_msg(1008, std::string(100000, '1').c_str(), 0), -1);
    EXPECT_EQ(counter_of("pushes_accepted"), accepted);
    EXPECT_EQ(counter_of("pushes_dropped"), 2004 - accepted);
    EXPECT_TRUE(comes_true([] { return counter_of("subscribers_dropped") == 2; }));
    EXPECT_TRUE(comes_true([] { return new_push_msg(1008, "\"the last\"", 0) == 0; }));
    EXPECT_TRUE(comes_true([] { return read_file("run/pushes.jsonl").find("the last") != std::string::npos; }));
    // Whatever was refused has taken its number.
    std::string spooled = read_file("run/pushes.jsonl");
    auto [of, number] = run_and_seq(spooled.substr(spooled.rfind('{')));
    EXPECT_EQ(of, run);
    EXPECT_EQ(number, counter_of("pushes_accepted") + counter_of("pushes_dropped"));
    for (const char *name : {"run/pushes.jsonl", "run/pushes.jsonl.1"})
        EXPECT_LE(std::filesystem::file_size(home + name), 8192u) << name;
    EXPECT_EQ(counter_of("spool_failed"), 0u);
}

TEST(Storage, IsMadeWhenMissingAndReadsWithinBounds)
{
    char path[256];
    ASSERT_EQ(get_config_path(path, 255), 0);
    EXPECT_EQ(path, home + "state/config/");
    EXPECT_EQ(get_config_path(path, 10), -1);
    EXPECT_EQ(mode_of(home + "state/config"), 0700u);
    // Neither too deep, nor endless.
    const std::string nest = std::string(32, '[') + std::string(32, ']'), large = "\"" + std::string(1 << 20, 'x') + "\"";
    for (const std::string &text : {nest, "[" + nest + "]", large}) {
        write_file("some.json", text);
        EXPECT_EQ(json_tree(json_load_file((home + "some.json").c_str())) != nullptr, text == nest);
        EXPECT_EQ(json_tree(json_load_buffer(text.c_str())) != nullptr, text == nest);
    }
    EXPECT_FALSE(json_load_file((home + "none").c_str()) || json_load_file(home.c_str()) || json_load_file("/dev/zero"));
    // The counters' page in /tmp is never written through somebody's link, and read only when it is one.
    const char *const names[] = {"a name longer than a slot has room for"};
    counter_reading read[1];
    write_file("precious", "kept");
    std::filesystem::create_symlink(home + "precious", home + "page");
    EXPECT_EQ(counter_page_read((home + "page").c_str(), read, 1, nullptr), -1);
    ASSERT_TRUE(counter_page_create((home + "page").c_str(), names, 1));
    ASSERT_EQ(counter_page_read((home + "page").c_str(), read, 1, nullptr), 1);
    EXPECT_STREQ(read[0].name, "a name longer than a slot h");
    EXPECT_EQ(read_file("precious"), "kept");
}

int main(int argc, char **argv)
{
    char name[] = "/tmp/platform_test.XXXXXX";
    home = std::string(mkdtemp(name)) + "/";
    socket_path = home + "requests";
    std::filesystem::create_directories(home + "state");
    write_file("settings.json", "{\"state_dir\":\"" + home + "state\",\"runtime_dir\":\"" + home +
                                    "run\",\"spool_limit\":8192,\"lan_interface\":5}");
    setenv("APPIDENT_PLATFORM_SETTINGS", (home + "settings.json").c_str(), 1);
    own_network = unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0;
    testing::InitGoogleTest(&argc, argv);
    int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(home);
    return result;
}
