#include "tests/kit/household.h"

#include "common/log.h"

#include <algorithm>
#include <arpa/inet.h>
#include <filesystem>
#include <linux/netlink.h>
#include <sstream>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

// The daemon neither joins nor detaches its threads, one of which ends at once.
extern "C" const char *__tsan_default_options();
extern "C" const char *__tsan_default_options()
{
    return "report_thread_leaks=0";
}

std::string attribute(int type, const std::string &payload)
{
    nlattr header{static_cast<uint16_t>(NLA_HDRLEN + payload.size()), static_cast<uint16_t>(type)};
    return bytes_of(header) + payload + std::string((4 - payload.size() % 4) % 4, '\0');
}

std::string netlink_message(int type, const std::string &attributes)
{
    nlmsghdr header{};
    header.nlmsg_len = static_cast<u32>(NLMSG_HDRLEN + 4 + attributes.size());
    header.nlmsg_type = static_cast<uint16_t>(type);
    return bytes_of(header) + std::string(4, '\0') + attributes;
}

std::string tuple(const char *src, const char *dst, u32 bytes)
{
    return attribute(1, attribute(1, bytes_of(inet_addr(src))) + attribute(2, bytes_of(inet_addr(dst)))) +
           attribute(2, attribute(1, std::string(1, '\6'))) + attribute(3, attribute(26, bytes_of(bytes)));
}

std::string accounting_message(u32 word, u32 rule, const char *src, u32 up, u32 down)
{
    const char *remote = "203.0.113.9";
    return netlink_message(0x10B, attribute(1, tuple(src, remote, up)) + attribute(2, tuple(remote, src, down)) +
                                      attribute(27, bytes_of(word)) + attribute(28, bytes_of(rule)) +
                                      attribute(29, bytes_of(u32{3})));
}

std::string host_message(int action, const std::string &mac)
{
    int header[9] = {0, action, 5, 0, 0, 0, 0, 0, 0};
    return bytes_of(header) + bytes_of(inet_addr("192.168.1.99")) + bytes_of(mac_from_text(mac)) + std::string(2, '\0');
}

std::string app_message(int action, u32 word, u32 rule, const std::string &mac, u32 ip)
{
    int header[10] = {0, action, 6, 11, 0, 0, 0, 0, 0, 0};
    std::string body(304, '\0');
    body.replace(0, 4, bytes_of(word)).replace(20, 4, bytes_of(ip));
    return bytes_of(header) + body.replace(48, 6, bytes_of(mac_from_text(mac))).replace(56, 4, bytes_of(rule));
}

std::string status(int status, u32 app, u32 at, const lan_device &device)
{
    return "status " + std::to_string(status) + " app " + std::to_string(app) + " at " + std::to_string(at) + " of " +
           device.mac;
}

std::string presence_object(const char *state, u32 app, u32 from, u32 to, u32 minutes, const lan_device &device)
{
    const home_device &known = platform.device(device.mac);
    char text[500];
    snprintf(text, sizeof text,
             R"({"endmac":"%s","role":"%s","appid":"%u","starttime":"%u","endtime":"%u","sumtime":"%u","status":"%s",)"
             R"("folk_id":"%d"})",
             device.mac, known.role.c_str(), app, from, to, minutes, state, known.group);
    return text;
}

std::string presence(const char *state, u32 app, u32 from, u32 to, u32 minutes, const lan_device &device)
{
    return "push 1023 0 [" + presence_object(state, app, from, to, minutes, device) + "]";
}

std::string history(u32 app, u32 seconds, u64 up, u64 down, const std::string &rules, const lan_device &device,
                    unsigned long occur_time)
{
    const home_device &known = platform.device(device.mac);
    return "push 1008 " + std::to_string(occur_time) + R"( {"endmac":")" + device.mac + R"(","alias":")" + known.name +
           R"(","appid":")" + std::to_string(app) + R"(","sumtime":")" + std::to_string(seconds) + R"(","up_traffic":")" +
           std::to_string(up) + R"(","down_traffic":")" + std::to_string(down) + R"(","ruleid":")" + rules +
           R"(","folk_id":")" + std::to_string(known.group) + "\"}";
}

household::household()
{
    setenv("TZ", "UTC0", 1);
    tzset();
    set_clock(evening);
    INIT_LIST_HEAD(&device_apps_head);
    wechatPay_hit_cnt = wechatPay_hit_time = 0;
    wechatPay_push_flag = 0;
    App_store_pay_time = weChat_red_pay_time = 0;

    // In memory where there is such a place: the log waits for the disk with each line.
    std::filesystem::path memory = "/dev/shm";
    std::string pattern = (exists(memory) ? memory : std::filesystem::temp_directory_path()) / "household-XXXXXX";
    directory = mkdtemp(pattern.data());
    platform = {};
    platform.config_dir = directory + "/";
    log_path = directory + "/log";
    log_file = log_path.c_str();
    log_file_size = 0;
    url_check_init();
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, traffic), 0);
    ticking = start_ticking();
}

household::~household()
{
    list_for_each_safe(node, spare, &device_apps_head) {
        list_del(node);
        free_device_record(device_of(node));
    }
    url_check_cleanup();
    close(traffic[0]);
    close(traffic[1]);
    std::filesystem::remove_all(directory);
}

void household::know(const lan_device &device, const char *role)
{
    platform.device(device.mac) = {device.mac, role, true, "the " + std::string(device.mac), 40 + device.mac[16] - 'A'};
    platform.neighbours[device.ip] = device.mac;
}

device_record *household::arrive(const lan_device &device, const char *role)
{
    know(device, role);
    feed_router(host_message(0, device.mac));
    return record(device);
}

void household::hit(u32 app, hit_kind kind, hit_details details, const lan_device &device)
{
    EXPECT_EQ(feed_traffic(accounting_message(app_word(app, details.behavior), details.rule | kind, device.ip, details.up,
                                              details.down)),
              0);
}

void household::wait(u32 seconds)
{
    while (seconds-- > 0) {
        set_clock(clock_now() + 1);
        ++platform.uptime;
        if (++since_tick == 3)
            tick();
    }
}

void household::tick()
{
    since_tick = 0;
    run_tick(ticking);
}

int household::feed_traffic(const std::string &datagram)
{
    EXPECT_EQ(send(traffic[0], datagram.data(), datagram.size(), 0), static_cast<ssize_t>(datagram.size()));
    return handle_traffic_event(traffic[1]);
}

int household::feed_router(const std::string &message)
{
    igd_netlink_handler channel{};
    platform.router_messages.push_back(message);
    return handle_igd_msg(&channel);
}

device_record *household::record(const lan_device &device)
{
    list_for_each(node, &device_apps_head) {
        if (std::string(device_of(node)->mac) == device.mac)
            return device_of(node);
    }
    return nullptr;
}

app_ident_record *household::app(u32 id, const lan_device &device)
{
    if (device_record *rec = record(device))
        for (app_ident_record &slot : rec->apps)
            if (slot.app_id == id)
                return &slot;
    return nullptr;
}

std::string household::brief(u32 id, const lan_device &device)
{
    static const char *const states[] = {"unused", "hit", "using", "disuse"};
    const app_ident_record *use = app(id, device);
    if (use == nullptr)
        return "not recorded";
    std::ostringstream text;
    text << states[use->app_state] << " " << use->period_time << "/" << use->sum_time
         << (use->time_axis_app_state == APP_USING ? " axis " : " off ") << use->time_axis_period_time << "/"
         << use->time_axis_sum_time << " up " << use->up_bytes << " hits";
    for (const hit_record &minute : use->hit_records)
        text << " " << minute.hit_times;
    return text.str();
}

lines household::logged()
{
    std::string text(static_cast<size_t>(lseek(log_fd, 0, SEEK_END)) - log_read, '\0');
    EXPECT_EQ(pread(log_fd, text.data(), text.size(), static_cast<off_t>(log_read)), static_cast<ssize_t>(text.size()));
    log_read += text.size();
    lines since;
    std::istringstream fresh(text);
    constexpr size_t stamp = 21; // "[2026-03-10 20:00:00]"
    for (std::string line; std::getline(fresh, line);)
        since.push_back(line.size() >= stamp && line[0] == '[' && line[stamp - 1] == ']' ? line.substr(stamp) : line);
    return since;
}
