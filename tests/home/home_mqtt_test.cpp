// MQTT against a real mosquitto: what home automation finds, and that no push is lost whatever ends or is away.
#include "common/sec_plg_common.h"
#include "home/queries.h"
#include "platform/linux/client/json_text.h"
#include "platform/linux/client/request_protocol.h"
#include "tests/home/running_home.h"
#include "tests/kit/waiting.h"

#include <signal.h>
#include <string.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <map>
#include <set>

namespace {

struct heard_message {
    bool retained;
    std::string topic, text;
};

// Answers for a household of one device whose limits were never set, and keeps what is stored.
struct scripted_daemon {
    std::string stored = R"({"err_no":"0","data":[]})";
    fd_guard socket{::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)};
    std::thread server;

    explicit scripted_daemon(const std::string &path)
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, path.c_str(), path.size() + 1);
        EXPECT_EQ(bind(socket.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(socket.get(), 8), 0);
        server = std::thread([this] { serve(); });
    }
    ~scripted_daemon() { end(); }
    void end()
    {
        shutdown(socket.get(), SHUT_RDWR);
        if (server.joinable())
            server.join();
    }
    void serve()
    {
        std::string packet(request_packet_limit, 0);
        for (int number; (number = accept4(socket.get(), nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            fd_guard peer(number);
            ssize_t size = read(peer.get(), packet.data(), packet.size());
            request_head head = {};
            memcpy(&head, packet.data(), sizeof(head));
            if (size >= static_cast<ssize_t>(sizeof(head)) && head.id == APPIDENT_SET_DEVICE_APP_LIST_USE_TIME)
                stored = packet.substr(sizeof(head) + head.device_length, head.text_length);
            std::string text = head.id == APPIDENT_GET_DEVICE_APP_LIST_USE_TIME ? stored : R"({"results":[]})";
            u32 length = static_cast<u32>(text.size());
            answer_head answer = {answer_magic, head.id == request_list_devices ? -1 : 0, length, length};
            text.insert(0, reinterpret_cast<const char *>(&answer), sizeof(answer));
            EXPECT_GT(send(peer.get(), text.data(), text.size(), MSG_NOSIGNAL), 0);
        }
    }
};

std::string text_in(const json_tree &tree, std::initializer_list<const char *> keys)
{
    const cJSON *item = tree.get();
    for (const char *key : keys)
        item = cJSON_GetObjectItemCaseSensitive(item, key);
    heap_text printed(item ? cJSON_PrintUnformatted(item) : nullptr);
    return cJSON_IsString(item) ? item->valuestring : printed ? printed.get() : "";
}

struct home_mqtt : running_home {
    int port = 0;
    std::string port_text, topic = "appident/r1/", tablet_topic = topic + tablet;
    child_process broker, watcher;

    void SetUp() override
    {
        fd_guard taken(listen_on_loopback(&port));
        port_text = std::to_string(port);
        write_file(directory.file("broker.conf"), "listener " + port_text +
                                                      " 127.0.0.1\nallow_anonymous true\nuser root\nlog_dest none\n" +
                                                      "persistence true\npersistence_location " + directory.path + "/\n");
    }
    ~home_mqtt() override
    {
        end_child(&watcher);
        end_child(&broker);
    }
    void start_broker() { start(&broker, {"/usr/sbin/mosquitto", "-c", directory.file("broker.conf")}); }
    // A broker that was killed has forgotten who listened.
    void start_broker_and_wait_for_the_watcher()
    {
        size_t before = heard("probe").size();
        start_broker();
        EXPECT_TRUE(comes_true([&] {
            output_of("mosquitto_pub -p " + port_text + " -t probe -m x 2>&1; sleep 0.1");
            return heard("probe").size() > before;
        }));
    }
    // It writes down what it keeps for others.
    void stop(child_process *child)
    {
        kill(child->id, SIGTERM);
        EXPECT_TRUE(comes_true([&] { return look_after_child(child, 0) == child_none; }));
    }
    void start_watcher()
    {
        start(&watcher, {"/bin/sh", "-c",
                         "while sleep 0.1; do mosquitto_sub -p " + port_text + " -q 1 -c -i watcher -t '#' -F '%r %t %p' >>" +
                             directory.file("heard") + " 2>/dev/null; done"});
    }
    void say_with_mosquitto(const std::string &to, const std::string &text)
    {
        int status = 0;
        output_of("mosquitto_pub -q 1 -p " + port_text + " -t '" + to + "' -m '" + text + "' 2>&1", &status);
        EXPECT_EQ(status, 0) << to;
    }
    std::vector<heard_message> heard(const std::string &of)
    {
        std::vector<heard_message> all;
        std::string text = text_of(directory.file("heard"));
        for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
            size_t after = text.find(' ', at + 2);
            heard_message one = {text[at] == '1', text.substr(at + 2, after - at - 2), text.substr(after + 1, end - after - 1)};
            if (one.topic == of)
                all.push_back(one);
        }
        return all;
    }
    bool is_last(const std::string &of, const std::string &text) { return !heard(of).empty() && heard(of).back().text == text; }
    json_tree last(const std::string &of)
    {
        return json_tree(heard(of).empty() ? nullptr : cJSON_Parse(heard(of).back().text.c_str()));
    }
    std::string settings(const char *more)
    {
        return R"("mqtt":{"host":"localhost","port":)" + port_text + R"(,"id":"r1","discovery_prefix":"ha")" + more + "}";
    }
};

TEST_F(home_mqtt, home_automation_finds_the_devices_and_may_set_limits)
{
    scripted_daemon daemon_itself(directory.file("ipc"));
    start_watcher();
    start_broker_and_wait_for_the_watcher();
    int64_t now = time(nullptr);
    for (const char *mac : {tablet, phone})
        daemon.whole_session(mac, game, now - 1500, 9);
    say_limit(tablet, 30, 1200); // late, so no event any more
    begin(settings(R"(,"limits":true)"));
    std::string found = "ha/device/appident_aabbccddee01/config", other = "ha/device/appident_aabbccddee02/config";
    ASSERT_TRUE(comes_true([&] { return !heard(found).empty() && !heard(other).empty(); }));
    say_limit(tablet, 60);
    ASSERT_TRUE(comes_true([&] { return text_in(last(found), {"dev", "name"}).find("$(touch harm)") == 0; }));
    json_tree entities = last(found);
    EXPECT_EQ(text_in(entities, {"dev", "ids"}) + text_in(entities, {"dev", "cns"}),
              R"(["appident_aabbccddee01"][["mac","aa:bb:cc:dd:ee:01"]])");
    EXPECT_EQ(text_in(entities, {"o", "name"}) + text_in(entities, {"avty_t"}), "appident-homeappident/r1/availability");
    std::set<std::string> ids;
    const cJSON *one = nullptr;
    cJSON_ArrayForEach(one, cJSON_GetObjectItem(entities.get(), "cmps")) {
        EXPECT_TRUE(cJSON_GetObjectItem(one, "p")) << one->string;
        EXPECT_TRUE(ids.insert(cJSON_GetStringValue(cJSON_GetObjectItem(one, "uniq_id"))).second) << one->string;
        EXPECT_TRUE(cJSON_GetObjectItem(one, "val_tpl") || cJSON_GetObjectItem(one, "evt_typ")) << one->string;
    }
    EXPECT_EQ(ids.size(), 16u); // seven of every device, three more sums of the day, and six about limits
    // An open session, and the sums.
    daemon.time = now;
    daemon.presence("online", tablet, video, now, 0);
    write_spool();
    EXPECT_TRUE(comes_true([&] { return text_in(last(tablet_topic + "/state"), {"in_use"}) == "ON"; }));
    EXPECT_EQ(text_in(last(tablet_topic + "/state"), {"today", "all"}), "9");
    ASSERT_TRUE(comes_true([&] { return heard(tablet_topic + "/alert").size() == 1; }));
    json_tree alert = last(tablet_topic + "/alert");
    EXPECT_EQ(text_in(alert, {"event_type"}) + text_in(alert, {"minutes"}), "limit60");
    std::string kept = output_of("mosquitto_sub -p " + port_text + " -t '#' --retained-only -W 2 -F %t 2>/dev/null");
    EXPECT_NE(kept.find("/state\n"), std::string::npos);
    EXPECT_EQ(kept.find("alert"), std::string::npos);
    // Home automation starts anew.
    size_t told = heard(found).size();
    say_with_mosquitto("ha/status", "online");
    EXPECT_TRUE(comes_true([&] { return heard(found).size() > told; }));
    // A limit, read back from the daemon; nonsense changes nothing.
    ASSERT_TRUE(comes_true([&] { return text_in(last(tablet_topic + "/limits"), {"games", "on"}) == "OFF"; }));
    for (const char *nonsense : {"0", "1441", "-1", "60x", ""})
        say_with_mosquitto(tablet_topic + "/limits/games/minutes/set", nonsense);
    say_with_mosquitto(tablet_topic + "/limits/games/minutes/set", "45");
    say_with_mosquitto(tablet_topic + "/limits/games/on/set", "ON");
    EXPECT_TRUE(comes_true([&] {
        return is_last(tablet_topic + "/limits", R"({"games":{"minutes":45,"on":"ON"},"video_social":)"
                                                 R"({"minutes":60,"on":"OFF"},"other":{"minutes":60,"on":"OFF"}})");
    }));
    // A device that is forgotten while nobody runs; before that our last will.
    end_child(&program);
    EXPECT_TRUE(comes_true([&] { return is_last(topic + "availability", "offline"); }));
    offline(std::string("--forget ") + phone);
    begin(settings(R"(,"pushes":false)"));
    EXPECT_TRUE(comes_true([&] { return is_last(other, ""); }));
    EXPECT_TRUE(is_last(topic + "availability", "online"));
    stop(&program);
    daemon_itself.end();
    json_tree limits(cJSON_Parse(daemon_itself.stored.c_str()));
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(limits.get(), "data")), 5);
    EXPECT_EQ(output_of("sqlite3 " + directory.file("home.db") + " \"SELECT group_concat(account||' '||after) FROM change\""),
              "MQTT off,MQTT 45 minutes\n");
}

TEST_F(home_mqtt, no_push_is_lost_and_nobody_waits_for_the_broker)
{
    constexpr int pushes = 2000;
    int page = 0;
    {
        fd_guard taken(listen_on_loopback(&page));
    }
    auto say_some = [&](int count) {
        for (int i = 0; i < count; ++i) {
            daemon.time = time(nullptr);
            daemon.history_of(i % 2 ? tablet : phone, game, 2 + i % 9);
        }
        write_spool();
    };
    auto numbers = [&] {
        std::set<int> all;
        for (const heard_message &one : heard(topic + "push"))
            all.insert(atoi(one.text.c_str() + one.text.find("\"seq\":") + 6));
        return all.size();
    };
    std::string own = R"("listen":"127.0.0.1","port":)" + std::to_string(page) + "," + settings("");
    start_watcher();
    start_broker_and_wait_for_the_watcher();
    begin(own);
    say_some(pushes / 4);
    ASSERT_TRUE(comes_true([&] { return numbers() == pushes / 4; }));
    // Given to a broker that does not answer any more; then both are killed.
    kill(broker.id, SIGSTOP);
    say_some(pushes / 4);
    std::string web = "curl -s -f http://127.0.0.1:" + std::to_string(page);
    EXPECT_TRUE(comes_true([&] { return output_of(web + "/metrics | grep 'mqtt_pushes_waiting [1-9]'") != ""; }));
    output_of("sleep 2"); // more than the commit interval: what was noted wrongly would be kept
    end_child(&program);
    end_child(&broker);
    begin(own);
    // What stands at its place accepts connections and never says a word.
    {
        fd_guard hanging(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address = {AF_INET, htons(static_cast<uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
        int yes = 1;
        setsockopt(hanging.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
        ASSERT_EQ(bind(hanging.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
        ASSERT_EQ(listen(hanging.get(), 8), 0);
        fcntl(hanging.get(), F_SETFL, O_NONBLOCK);
        EXPECT_TRUE(comes_true([&] { return output_of(web + "/healthz") != ""; }));
        std::vector<double> times;
        for (int i = 0; i < 40; ++i) {
            std::string said = output_of(web + "/healthz -o /dev/null -w '%{http_code} %{time_total}'; sleep 0.05");
            EXPECT_EQ(said.substr(0, 4), "200 ");
            times.push_back(atof(said.c_str() + std::min<size_t>(said.size(), 4)));
        }
        std::sort(times.begin(), times.end());
        EXPECT_LT(times[times.size() / 2], 0.1);
        RecordProperty("median_ms", static_cast<int>(times[times.size() / 2] * 1000));
        int silent = -1; // the program comes to it sooner or later
        EXPECT_TRUE(
            comes_true([&] { return (silent = accept4(hanging.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0; }));
        close(silent);
    }
    end_child(&program); // killed too, and the spool rotated meanwhile
    ASSERT_EQ(rename(directory.file("pushes.jsonl").c_str(), directory.file("pushes.jsonl.1").c_str()), 0);
    say_some(pushes / 4);
    start_broker_and_wait_for_the_watcher();
    begin(own);
    ASSERT_TRUE(comes_true([&] { return numbers() >= pushes * 3 / 4; }));
    // And one that acknowledges nothing, with the program killed when its database has all.
    kill(broker.id, SIGSTOP);
    say_some(pushes / 4);
    std::string lines = "sqlite3 " + directory.file("home.db") + " \"SELECT value FROM count WHERE name='lines'\" 2>/dev/null";
    ASSERT_TRUE(comes_true([&] { return output_of(lines) == std::to_string(pushes) + "\n"; }));
    end_child(&program);
    kill(broker.id, SIGCONT);
    begin(own);
    EXPECT_TRUE(comes_true([&] { return numbers() == pushes; })) << numbers();
}

} // namespace
