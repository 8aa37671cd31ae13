// What the program tells others: a webhook, a command, Prometheus. The real program, with real partners on loopback.
#include "home/devices.h"
#include "home/joining.h"
#include "home/metrics.h"
#include "home/notice_settings.h"
#include "home/serve.h"
#include "tests/home/running_home.h"
#include "tests/kit/waiting.h"

#include <algorithm>
#include <mutex>

namespace {

struct home_outside : running_home {};

// Takes POSTs one after the other, answers the first ones with 500 or sends them elsewhere, and keeps all bodies.
struct receiver {
    int port = 0, refusals;
    fd_guard socket{listen_on_loopback(&port)};
    std::mutex held;
    std::string bodies;
    std::thread taker;

    explicit receiver(int refuse_first) : refusals(refuse_first), taker([this] { take(); }) {}
    ~receiver()
    {
        shutdown(socket.get(), SHUT_RDWR);
        taker.join();
    }
    void take()
    {
        for (int number; (number = accept4(socket.get(), nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            fd_guard peer(number);
            std::string request;
            char piece[4096];
            // The body is one JSON object, without a line feed.
            for (ssize_t got; request.find("\r\n\r\n{") == std::string::npos || request.back() != '}';) {
                if ((got = read(peer.get(), piece, sizeof(piece))) <= 0)
                    break;
                request.append(piece, static_cast<size_t>(got));
            }
            std::lock_guard<std::mutex> guard(held);
            bodies += (request.find("\r\nAuthorization: Bearer \"k\\\r\n") != std::string::npos ? "" : "no key ") +
                      request.substr(std::min(request.find("\r\n\r\n") + 4, request.size())) + "\n";
            constexpr const char *answers[] = {"200 Yes\r\n", "500 No\r\n", "302 There\r\nLocation: /there\r\n"};
            std::string answer = std::string("HTTP/1.1 ") + answers[std::max(refusals--, 0)];
            answer += "Content-Length: 0\r\nConnection: close\r\n\r\n";
            EXPECT_GT(write(peer.get(), answer.data(), answer.size()), 0);
        }
    }
    std::vector<std::string> told(const char *key)
    {
        std::lock_guard<std::mutex> guard(held);
        std::vector<std::string> all;
        for (size_t at = 0, end; (end = bodies.find('\n', at)) != std::string::npos; at = end + 1) {
            json_tree tree(cJSON_Parse(bodies.substr(at, end - at).c_str()));
            heap_text value(cJSON_PrintUnformatted(cJSON_GetObjectItem(tree.get(), key)));
            all.push_back(value ? value.get() : "");
        }
        return all;
    }
};

using texts = std::vector<std::string>;

TEST_F(home_outside, alerts_are_told_once_by_webhook_and_command)
{
    receiver web(2);
    std::string told = directory.file("told"),
                settings = "\"webhook\":{\"url\":\"http://127.0.0.1:" + std::to_string(web.port) +
                           R"(/x","retry_after":1,"authorization":"Bearer \"k\\"},"command":{"run":["/bin/sh","-c",)"
                           R"("cat >>)" +
                           told + R"(; echo \"$APPIDENT_NAME\" >>)" + told + R"("]})";
    say_limit(tablet, 10); // before there is anybody to tell
    begin("\"port\":1");
    ASSERT_TRUE(comes_true([&] { return text_of(directory.file("home.db-wal")).find(tablet) != std::string::npos; }));
    end_child(&program);
    begin(settings);
    say_limit(tablet, 20);
    ASSERT_TRUE(comes_true([&] { return web.told("minutes").size() == 3; }));
    end_child(&program); // killed, perhaps before it has noted that
    say_limit(tablet, 30, 1200);
    say_limit(phone, 40, 2 * 86400);
    // In the database before anybody is told: what was told before is known all the same.
    offline("--import " + directory.file("pushes.jsonl"));
    say_limit(phone, 50);
    begin(settings);
    ASSERT_TRUE(comes_true([&] { return !web.told("minutes").empty() && web.told("minutes").back() == "50"; }));
    texts minutes = web.told("minutes"), late = web.told("late");
    ASSERT_GE(minutes.size(), 5u);
    // The third was accepted; a kill right after it may tell it once more.
    EXPECT_EQ(texts(minutes.begin(), minutes.begin() + 3), (texts{"20", "20", "20"}));
    EXPECT_EQ(texts(minutes.end() - 2, minutes.end()), (texts{"30", "50"}));
    EXPECT_EQ(texts(late.end() - 2, late.end()), (texts{"true", "false"}));
    json_tree name(cJSON_Parse(("\"" + std::string(hostile_name) + "\"").c_str()));
    ASSERT_TRUE(comes_true([&] { return text_of(told).find("\"minutes\":50") != std::string::npos; }));
    EXPECT_TRUE(comes_true([&] { return text_of(told).rfind(name->valuestring) > text_of(told).find("\"minutes\":50"); }));
    EXPECT_EQ(text_of(told).find("\"minutes\":10,"), std::string::npos);
    EXPECT_NE(access("harm", F_OK), 0);
}

TEST(home_children, one_that_takes_too_long_is_killed_with_what_it_started)
{
    scratch_directory directory;
    child_process child;
    int64_t began = uptime_ms();
    ASSERT_TRUE(
        start_child(&child, {"/bin/sh", "-c", "(sleep 1; touch " + directory.file("late") + ") & wait"}, {}, "", began + 200));
    child_state how = child_none;
    ASSERT_TRUE(comes_true([&] { return (how = look_after_child(&child, uptime_ms())) != child_running; }));
    EXPECT_EQ(how, child_failed);
    EXPECT_FALSE(comes_true(2, [&] { return access(directory.file("late").c_str(), F_OK) == 0; }));
}

TEST(home_notice_settings, what_is_wrong_turns_its_way_off)
{
    const struct {
        const char *text;
        bool webhook, command, mqtt;
    } cases[] = {
        {R"({})", false, false, false},
        {R"({"webhook":{"url":"https://x/"},"command":{"run":["/bin/true"]},"mqtt":{"host":"broker"}})", true, true, true},
        {R"({"webhook":{"url":"ftp://x/"},"command":{"run":["true"]},"mqtt":{"host":""}})", false, false, false},
        {R"({"webhook":{"url":"http://x/","hots":1},"command":{"run":"/bin/true"},"mqtt":{"host":"b","port":0}})", false, false,
         false},
        {R"({"webhook":{"url":"http://x/\n"},"command":{"run":["/x"],"time_limit":601},"mqtt":{"host":"b","id":"a/#"}})", false,
         false, false},
        {R"({"webhook":{"url":"http://x/","on":["limits"]},"command":{"run":[]},"mqtt":{"host":"b","prefix":"+"}})", false,
         false, false},
        {R"({"webhook":7,"command":{"run":[7]},"mqtt":{"host":"b","ca":"/ca","tls":false}})", false, false, false},
    };
    for (const auto &one : cases) {
        json_tree tree(cJSON_Parse(one.text));
        ASSERT_TRUE(tree) << one.text;
        notice_settings read = read_notice_settings(tree.get());
        EXPECT_TRUE(read.webhook.on == one.webhook && read.command.on == one.command && read.mqtt.on == one.mqtt) << one.text;
    }
}

TEST(home_metrics, promtool_finds_nothing_and_counters_never_fall)
{
    scratch_directory directory;
    household home;
    home_settings settings;
    settings.tree.reset(cJSON_Parse(R"({"metrics":{"per_app":true}})"));
    home.settings = &settings;
    home.truth.of = &home.all;
    std::string why;
    ASSERT_TRUE(open_history(&home.all, directory.file("home.db"), {}, &why)) << why;
    daemon_voice daemon;
    daemon.whole_session(tablet, game, time(nullptr) - 3000, 5);
    take_text(&home.all, daemon.text);
    begin_metrics(&home);
    home.apps.classes[game] = 1;
    home.apps.names[game] = "G\"1\\";
    daemon.text.clear();
    daemon.whole_session(tablet, game, time(nullptr) - 2000, 7);
    daemon.say(1015, limit_of(tablet, 60));
    take_text(&home.all, daemon.text);
    tell_facts(&home.all);
    std::string text = metrics_text(&home);
    for (const char *line : {"appident_use_seconds_total{device=\"AA-BB-CC-DD-EE-01\",class=\"games\"} 420\n",
                             "app=\"1003\",app_name=\"G\\\"1\\\\\"} 420\n", "direction=\"down\"} 7000\n", "kind=\"limit\"} 1\n",
                             "name=\"$(touch harm);`touch harm` \\\"x\\\\\\\" {{ 1 }}", "appident_daemon_up 0\n"})
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    int status = 0;
    if (output_of("command -v promtool") != "") {
        write_file(directory.file("text"), text);
        EXPECT_EQ(output_of("promtool check metrics <" + directory.file("text") + " 2>&1", &status) + std::to_string(status),
                  "0");
    }
    // A correction takes minutes away: the counter stays, and counts on from where it was.
    change(&home.all.db, "UPDATE day_use SET minutes=minutes-2");
    EXPECT_NE(metrics_text(&home).find("class=\"games\"} 420\n"), std::string::npos);
    change(&home.all.db, "UPDATE day_use SET minutes=minutes+3");
    EXPECT_NE(metrics_text(&home).find("class=\"games\"} 480\n"), std::string::npos);
    forget_device(&home.all, tablet);
    EXPECT_EQ(metrics_text(&home).find(tablet), std::string::npos);
    close_history(&home.all);
}

} // namespace
