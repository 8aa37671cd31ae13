// The request server, asked over its socket.
#include "tests/system/platform/place.h"

#include "common/guards.h"
#include "igd/igd_lib.h"
#include "platform/linux/client/request_client.h"
#include "platform/linux/client/request_protocol.h"

#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

using namespace std::literals;

namespace {

// What the handler was given, in words, and what it is to answer.
std::vector<std::string> calls;
std::string result_text;
int result_code = 0;

int record_request(unsigned int id, void *pa, void *pb, void *pc)
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

TEST(request_server, brings_each_id_the_words_of_its_table)
{
    std::ofstream(socket_path) << "left over";
    int server = nt_ipcserver_init2(socket_path.c_str(), record_request);
    ASSERT_GE(server, 0);
    EXPECT_EQ(mode_of(socket_path), 0660u);
    appident_payment_notify_st switches = {"AA-BB-CC-00-00-01", 1, 2, 3, 4, 5};
    client_answer answer;
    auto ask = [&](client_request request) {
        return serve_during(server, [&] { return call_daemon(socket_path.c_str(), 60000, request, &answer); });
    };
    result_text = "{\"err_no\":\"0\"}";
    const char *limits = R"({"device":"AA-BB-CC-00-00-01","data":[{"class_type":1}]})";
    const char *stored = R"(11 {"device":"AA-BB-CC-00-00-01","data":[{"class_type":1}]}AA-BB-CC-00-00-01 56)";
    const struct {
        client_request request;
        const char *given;
    } table[] = {{{6, switches.mac, nullptr, nullptr, 0}, "6 AA-BB-CC-00-00-01 65536"},
                 {{7, switches.mac, nullptr, nullptr, 0}, "7 AA-BB-CC-00-00-01 65536"},
                 {{8, "{}", nullptr, nullptr, 0}, "8 {} 65536"},
                 {{9, "{}", nullptr, nullptr, 0}, "9 {} 65536"},
                 {{11, switches.mac, limits, nullptr, 0}, stored},
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
    EXPECT_EQ(ask({6, switches.mac, nullptr, nullptr, 0}), request_done);
    EXPECT_EQ(strlen(answer.text.get()), request_text_limit - 1);
    EXPECT_EQ(answer.full_length, request_text_limit + 5);
    result_text = "";
    EXPECT_EQ(ask({6, switches.mac, nullptr, nullptr, 0}), request_done);
    EXPECT_FALSE(answer.text);
    result_code = -1;
    for (unsigned int id : {0u, 6u, 10u, 14u, 99u, 1999u})
        EXPECT_EQ(ask({id, switches.mac, nullptr, &switches, 1}), request_refused) << id;
    EXPECT_EQ(calls.back(), "99"); // the library keeps its own ids from the daemon
    EXPECT_EQ(call_daemon((home + "nobody").c_str(), 100, {8, "m", nullptr, nullptr, 0}, nullptr), request_unreachable);
}

TEST(request_server, nonsense_and_silence_cost_nobody_else_anything)
{
    int server = nt_ipcserver_init2(socket_path.c_str(), record_request);
    ASSERT_GE(server, 0);
    calls.clear();
    auto packet_of = [](request_head head, const std::string &text = "m") {
        return std::string(reinterpret_cast<char *>(&head), sizeof head) + text;
    };
    const request_head good = {request_magic, 8, 0, 100, 1, 0};
    const std::string bad[] = {packet_of(good).substr(0, 10),
                               packet_of(good, "more"),
                               packet_of(good, "\0"s),
                               std::string(request_packet_limit + 1, 'x'),
                               packet_of({request_magic, 8, 0, 100, 0xFFFFFFFF, 2}),
                               packet_of({request_magic, 8, 0, request_text_limit + 1, 1, 0}),
                               packet_of({request_magic, 13, 1, 100, 1, 0}),
                               packet_of({answer_magic, 8, 0, 100, 1, 0})};
    char answer;
    for (const std::string &packet : bad) {
        fd_guard client(connect_to(socket_path, SOCK_SEQPACKET));
        ASSERT_EQ(send(client.get(), packet.data(), packet.size(), 0), static_cast<ssize_t>(packet.size()));
        EXPECT_EQ(ipc_server_accept2(), -1);
        EXPECT_LE(recv(client.get(), &answer, 1, MSG_DONTWAIT), 0);
    }
    EXPECT_TRUE(counts("requests_malformed", std::size(bad)));
    close(connect_to(socket_path, SOCK_SEQPACKET));
    EXPECT_EQ(ipc_server_accept2(), -1);
    EXPECT_TRUE(counts("requests_vanished", 1u));

    // More silent clients than places; whoever asks is still served, and in the end all are let go.
    std::vector<std::unique_ptr<fd_guard>> silent;
    for (int i = 0; i < 20; ++i) {
        silent.push_back(std::make_unique<fd_guard>(connect_to(socket_path, SOCK_SEQPACKET)));
        EXPECT_EQ(ipc_server_accept2(), -1);
    }
    EXPECT_TRUE(counts("requests_crowded_out", 4u));
    EXPECT_TRUE(calls.empty());
    serve_during(server, [] { return call_daemon(socket_path.c_str(), 60000, {8, "m", nullptr, nullptr, 0}, nullptr); });
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
    EXPECT_TRUE(counts("no_descriptor", 1u));
}

TEST(request_server, only_root_ourselves_and_the_group_may_ask)
{
    if (geteuid() != 0 || as_nobody({}, [] { return 0; }) != 0)
        GTEST_SKIP() << "cannot become another user";
    int server = nt_ipcserver_init2(socket_path.c_str(), record_request);
    chmod(socket_path.c_str(), 0666); // leaves the peer check alone to decide
    chmod(home.c_str(), 0755);
    auto ask = [] {
        return static_cast<int>(call_daemon(socket_path.c_str(), 60000, {10, "m", nullptr, nullptr, 0}, nullptr));
    };
    calls.clear();
    EXPECT_EQ(serve_during(server, [&] { return as_nobody({}, ask); }), request_refused);
    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(counts("peers_refused", 1u));
    serve_during(server, [&] { return as_nobody({5, getegid()}, ask); });
    EXPECT_EQ(calls.size(), 1u);
}

} // namespace
