// fleet_bench: the day's end of many routers that report to one broker, a real mosquitto on loopback.
//
// usage: fleet_bench [ROUTERS [SECONDS]]     (1000 120)
//
// The fifty minutes after midnight in that many seconds: each of ten devices of a router has its report of the day put off by 1
// to 50 minutes at random, and each minute the router tells what is in use. The collector is away for a fifth of the time, and
// one router in twenty loses its connection. Ends with 1 when a push is lost.
#include "common/guards.h"
#include "home/child_process.h"
#include "home/database.h"

#include <arpa/inet.h>
#include <mosquitto.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int devices = 10, in_use_at_once = 3, minutes = 50, keep_alive_s = 60;
constexpr size_t text_room = 2000;

using handle = std::unique_ptr<mosquitto, released_by<mosquitto_destroy>>;

struct due_push {
    int64_t at_ms;
    size_t router;
    bool report; // else what is in use
};

struct fleet {
    int port = 0;
    handle collector;
    std::vector<handle> routers;
    std::vector<int> said;                // pushes of each router
    std::vector<std::vector<bool>> heard; // by router and number
    int64_t arrived = 0, twice = 0;
    std::vector<int> delays_ms;
    std::minstd_rand random{7};
};

std::string push_text(fleet *all, const due_push &push, int64_t now_ms)
{
    char text[text_room];
    int number = ++all->said[push.router];
    int length = snprintf(text, sizeof(text), R"({"run":"%016zx","seq":%d,"time":%lld,"code":%d,"occur_time":0,"data":)",
                          push.router, number, static_cast<long long>(now_ms), push.report ? 1008 : 1023);
    std::string line(text, static_cast<size_t>(length));
    for (int i = 0; i < (push.report ? 1 : in_use_at_once); ++i) {
        unsigned int device = static_cast<unsigned int>(all->random() % devices);
        if (push.report)
            snprintf(
                text, sizeof(text),
                R"({"endmac":"AA-BB-CC-00-00-%02X","alias":"Device %u","appid":"1001","sumtime":"1320","up_traffic":"123456",)"
                R"("down_traffic":"98765432","ruleid":"123456","folk_id":"-1"})",
                device, device);
        else
            snprintf(text, sizeof(text),
                     R"(%s{"endmac":"AA-BB-CC-00-00-%02X","role":"1","appid":"1001","starttime":"1700000000","endtime":"0",)"
                     R"("sumtime":"22","status":"using","folk_id":"-1"})",
                     i ? "," : "[", device);
        line += text;
    }
    return line + (push.report ? "}" : "]}");
}

void on_message(mosquitto *, void *context, const mosquitto_message *message)
{
    fleet *all = static_cast<fleet *>(context);
    std::string text(static_cast<const char *>(message->payload), static_cast<size_t>(message->payloadlen));
    unsigned long router = 0;
    int number = 0;
    long long sent = 0;
    if (sscanf(text.c_str(), R"({"run":"%lx","seq":%d,"time":%lld)", &router, &number, &sent) != 3 ||
        router >= all->heard.size() || number < 1)
        return;
    std::vector<bool> &seen = all->heard[router];
    seen.resize(std::max(seen.size(), static_cast<size_t>(number) + 1));
    ++(seen[static_cast<size_t>(number)] ? all->twice : all->arrived);
    seen[static_cast<size_t>(number)] = true;
    all->delays_ms.push_back(static_cast<int>(uptime_ms() - sent));
}

// In the order of time. The daemon's own spread: a report each, one minute after the day's end or up to fifty.
std::vector<due_push> day_end(fleet *all, int64_t begin_ms, int64_t minute_ms)
{
    std::vector<due_push> due;
    for (size_t router = 0; router < all->routers.size(); ++router) {
        int64_t phase = static_cast<int64_t>(all->random()) % minute_ms;
        for (int device = 0; device < devices; ++device)
            due.push_back({begin_ms + static_cast<int64_t>(1 + all->random() % minutes) * minute_ms, router, true});
        for (int minute = 0; minute < minutes; ++minute)
            due.push_back({begin_ms + minute * minute_ms + phase, router, false});
    }
    std::sort(due.begin(), due.end(), [](const due_push &a, const due_push &b) { return a.at_ms < b.at_ms; });
    return due;
}

bool connect_all(fleet *all)
{
    for (size_t i = 0; i < all->routers.size(); ++i) {
        all->routers[i].reset(mosquitto_new(("appident-fleet-" + std::to_string(i)).c_str(), false, nullptr));
        if (mosquitto_connect(all->routers[i].get(), "127.0.0.1", all->port, keep_alive_s) != MOSQ_ERR_SUCCESS)
            return false;
    }
    return true;
}

void join_collector(fleet *all)
{
    if (mosquitto_reconnect(all->collector.get()) == MOSQ_ERR_SUCCESS)
        mosquitto_subscribe(all->collector.get(), nullptr, "appident/+/push", 1);
}

// What is to be read and written on every connection; one that has broken is made again.
void serve_connections(fleet *all, bool collector_away, int wait_ms)
{
    std::vector<pollfd> slots;
    std::vector<mosquitto *> clients;
    auto add = [&](mosquitto *client) {
        if (mosquitto_socket(client) < 0 && mosquitto_reconnect(client) != MOSQ_ERR_SUCCESS)
            return;
        slots.push_back(
            {mosquitto_socket(client), static_cast<short>(POLLIN | (mosquitto_want_write(client) ? POLLOUT : 0)), 0});
        clients.push_back(client);
    };
    for (const handle &router : all->routers)
        add(router.get());
    if (!collector_away)
        add(all->collector.get());
    poll(slots.data(), slots.size(), wait_ms);
    for (size_t i = 0; i < slots.size(); ++i) {
        if (slots[i].revents & ~POLLOUT)
            mosquitto_loop_read(clients[i], 100);
        if (slots[i].revents & POLLOUT)
            mosquitto_loop_write(clients[i], 100);
        mosquitto_loop_misc(clients[i]);
    }
}

long status_kb(pid_t of, const char *key)
{
    FILE *file = fopen(("/proc/" + std::to_string(of) + "/status").c_str(), "re");
    char line[200];
    long value = 0;
    while (file && fgets(line, sizeof(line), file))
        if (strncmp(line, key, strlen(key)) == 0)
            value = atol(line + strlen(key));
    if (file)
        fclose(file);
    return value;
}

double cpu_seconds(pid_t of)
{
    FILE *file = fopen(("/proc/" + std::to_string(of) + "/stat").c_str(), "re");
    unsigned long user = 0, kernel = 0;
    bool read = file && fscanf(file, "%*d %*s %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &user, &kernel) == 2;
    if (file)
        fclose(file);
    return read ? static_cast<double>(user + kernel) / static_cast<double>(sysconf(_SC_CLK_TCK)) : 0;
}

int free_port()
{
    fd_guard fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    sockaddr *any = reinterpret_cast<sockaddr *>(&address);
    return bind(fd.get(), any, size) == 0 && getsockname(fd.get(), any, &size) == 0 ? ntohs(address.sin_port) : 0;
}

bool start_broker(int port, const std::string &directory, child_process *broker)
{
    std::string path = directory + "/broker.conf";
    FILE *file = fopen(path.c_str(), "we");
    if (!file)
        return false;
    fprintf(file,
            "listener %d 127.0.0.1\nallow_anonymous true\nlog_dest none\nuser root\npersistence false\n"
            "max_queued_messages 0\nmax_inflight_messages 100\n",
            port);
    fclose(file);
    return start_child(broker, {"/usr/sbin/mosquitto", "-c", path}, {}, "", INT64_MAX);
}

} // namespace

namespace {

// Plays it; the broker's largest memory while the collector was there, in kB, goes to *resting.
void play(fleet *all, const std::vector<due_push> &due, int64_t seconds, pid_t broker, long *resting)
{
    constexpr int64_t patience_ms = 60000;
    int64_t begin = due.front().at_ms, away_from = begin + seconds * 400, away_to = begin + seconds * 600;
    bool away = false;
    size_t next = 0, cut = 0;
    int64_t expected = static_cast<int64_t>(due.size());
    for (int64_t now; (now = uptime_ms()) < begin + seconds * 1000 + patience_ms && all->arrived < expected;) {
        if (!away && now >= away_from && now < away_to) {
            away = true;
            *resting = status_kb(broker, "VmHWM:");
            mosquitto_disconnect(all->collector.get());
        } else if (away && now >= away_to) {
            away = false;
            join_collector(all);
        }
        for (; next < due.size() && due[next].at_ms <= now; ++next) {
            mosquitto *router = all->routers[due[next].router].get();
            std::string text = push_text(all, due[next], now), topic = "appident/" + std::to_string(due[next].router) + "/push";
            mosquitto_publish(router, nullptr, topic.c_str(), static_cast<int>(text.size()), text.data(), 1, false);
        }
        // Cut right after a push has gone out, before it was acknowledged.
        if (now >= begin + seconds * 200 && cut < all->routers.size() / 20 && next > 0)
            shutdown(mosquitto_socket(all->routers[due[next - 1].router].get()), (++cut, SHUT_RDWR));
        int64_t wait = next < due.size() ? due[next].at_ms - now : 10;
        serve_connections(all, away, static_cast<int>(std::min<int64_t>(std::max<int64_t>(wait, 0), 10)));
    }
}

void print_figures(fleet *all, size_t expected, int64_t took_ms, long resting, const child_process &broker)
{
    std::vector<int> &delays = all->delays_ms;
    std::sort(delays.begin(), delays.end());
    double seconds = static_cast<double>(took_ms) / 1000;
    printf("routers                                  %zu\n", all->routers.size());
    printf("pushes sent                              %zu in %.0f s, %.0f a second\n", expected, seconds,
           static_cast<double>(expected) / seconds);
    printf("lost                                     %lld\n",
           static_cast<long long>(expected) - static_cast<long long>(all->arrived));
    printf("came twice                               %lld\n", static_cast<long long>(all->twice));
    if (!delays.empty())
        printf("to the collector, median                 %d ms\n", delays[delays.size() / 2]);
    printf("broker, largest memory before            %.1f MB\n", static_cast<double>(resting) / 1000);
    printf("broker, with what waited for a collector %.1f MB\n", static_cast<double>(status_kb(broker.id, "VmHWM:")) / 1000);
    printf("broker, processor time                   %.1f s\n", cpu_seconds(broker.id));
}

} // namespace

int main(int argc, char **argv)
{
    size_t routers = argc > 1 ? static_cast<size_t>(atoi(argv[1])) : 1000;
    int64_t seconds = argc > 2 ? atoi(argv[2]) : 120;
    if (routers < 1 || routers > 3000 || seconds < 1 || seconds > 3000) {
        fputs("usage: fleet_bench [ROUTERS [SECONDS]]     at most 3000 each\n", stderr);
        return 2;
    }
    rlimit files = {4096, 4096};
    setrlimit(RLIMIT_NOFILE, &files); // for the broker too
    char directory[] = "/tmp/appident-fleet-XXXXXX";
    child_process broker;
    fleet all;
    mosquitto_lib_init();
    all.port = free_port();
    if (!mkdtemp(directory) || !start_broker(all.port, directory, &broker))
        return fputs("fleet_bench: cannot start mosquitto\n", stderr), 1;
    all.routers.resize(routers);
    all.said.resize(routers);
    all.heard.resize(routers);
    all.collector.reset(mosquitto_new("collector", false, &all));
    mosquitto_message_callback_set(all.collector.get(), on_message);
    bool ready = false;
    for (int i = 0; i < 100 && !ready; ++i, usleep(50000))
        ready = mosquitto_connect(all.collector.get(), "127.0.0.1", all.port, keep_alive_s) == MOSQ_ERR_SUCCESS;
    mosquitto_subscribe(all.collector.get(), nullptr, "appident/+/push", 1);
    ready = ready && connect_all(&all);
    if (!ready)
        fputs("fleet_bench: cannot connect\n", stderr);
    int64_t minute_ms = std::max<int64_t>(seconds * 1000 / minutes, 1), begin = uptime_ms() + 2000;
    while (ready && uptime_ms() < begin)
        serve_connections(&all, false, 10);
    std::vector<due_push> due = day_end(&all, begin, minute_ms);
    long resting = 0;
    if (ready)
        play(&all, due, seconds, broker.id, &resting);
    print_figures(&all, due.size(), uptime_ms() - begin, resting, broker);
    end_child(&broker);
    unlink((std::string(directory) + "/broker.conf").c_str());
    rmdir(directory);
    return ready && all.arrived == static_cast<int64_t>(due.size()) ? 0 : 1;
}
