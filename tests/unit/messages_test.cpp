// What comes in as bytes: accounting messages and router messages, well formed, cut short and hostile; MAC texts; the log file.
#include "common/log.h"
#include "tests/kit/household.h"

#include <arpa/inet.h>
#include <endian.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <linux/netlink.h>
#include <linux/sockios.h>
#include <memory>
#include <signal.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

class messages : public household {
protected:
    // Decodes from a buffer of exactly the message's size, so that a read beyond it is caught: "RESULT RECORD".
    static std::string decode(const std::string &message)
    {
        auto exact = std::make_unique<char[]>(message.size());
        memcpy(exact.get(), message.data(), message.size());
        app_data d{};
        int result = process_app_acct_message(reinterpret_cast<nlmsghdr *>(exact.get()), &d);
        return std::to_string(result) + " " + std::to_string(d.appid) + " " + std::to_string(d.ruleid) + " " +
               std::to_string(d.upperlimit) + " " + d.req_src_ip + ">" + d.req_dst_ip + " " + d.req_proto + " " +
               std::to_string(d.req_bytes) + " " + d.rep_src_ip + ">" + d.rep_dst_ip + " " + d.rep_proto + " " +
               std::to_string(d.rep_bytes);
    }
};

TEST_F(messages, accounting_attributes)
{
    const std::string app_id = attribute(27, bytes_of(u32{11})), rule_id = attribute(28, bytes_of(u32{12})),
                      limit = attribute(29, bytes_of(u32{13})), ids = app_id + rule_id + limit,
                      there = attribute(1, tuple("192.168.0.23", "1.2.3.4", 14)),
                      back = attribute(2, tuple("1.2.3.4", "255.255.255.255", 15));
    const std::string number = attribute(1, "\6"), short_u32(3, '\1');
    const std::string from_six(htole16(6) - 4u, '\21'); // an attribute of it has a length whose first byte is 6
    const std::string full = "0 11 12 13 192.168.0.23>1.2.3.4 udp 14 1.2.3.4>255.255.255.255 udp 15";
    const std::pair<std::string, std::string> whole[] = {
        {ids + there + back, full},
        {back + attribute(24, "noise") + there + limit + rule_id + app_id + attribute(27, bytes_of(u32{99})), full},
        {ids + attribute(1 | NLA_F_NESTED, there.substr(4)) + attribute(2 | NLA_F_NESTED, back.substr(4)), full},
        {"", "-1 0 0 0 >  0 >  0"},
        {attribute(27, short_u32) + rule_id + limit + there + back, "-1 0 0 0 >  0 >  0"},
        {app_id + rule_id + there + back, "-1 11 12 0 >  0 >  0"},
        {ids + back, "-1 11 12 13 >  0 >  0"},
        {ids + there, "-1 11 12 13 192.168.0.23>1.2.3.4 udp 14 >  0"},
    };
    for (const auto &[attributes, record] : whole)
        EXPECT_EQ(decode(netlink_message(11, attributes)), record);
    const std::pair<std::string, std::string> tuples[] = {
        {"", ">  0"},
        {attribute(2, number), "> udp 0"},
        {attribute(2, attribute(1, "")), "> udp 0"},
        // The text looks at the first byte of the nest, so a first child whose length starts with 6 makes "tcp", on purpose.
        {attribute(2, attribute(1, from_six)), "> tcp 0"},
        {attribute(2, attribute(9, from_six) + number), "> tcp 0"},
        {attribute(3, attribute(26, bytes_of(u32{7}) + bytes_of(u32{0})) + attribute(25, bytes_of(u32{8}))), ">  7"},
        {attribute(3, attribute(26, bytes_of(u32{7})) + attribute(26, bytes_of(u32{8}))), ">  8"},
        {attribute(3, attribute(26, short_u32)), ">  0"},
        {attribute(1, attribute(1, short_u32) + attribute(3, bytes_of(u32{1}))), ">  0"},
        {attribute(7, "?") + attribute(1, attribute(2, "\1\2\3\4")), ">1.2.3.4  0"},
    };
    for (const auto &[inside, record] : tuples)
        EXPECT_EQ(decode(netlink_message(11, ids + attribute(1, inside) + back)),
                  "0 11 12 13 " + record + " 1.2.3.4>255.255.255.255 udp 15");
}

TEST_F(messages, traffic_datagrams)
{
    arrive(tablet);
    const std::string message = accounting_message(app_word(5), start, tablet.ip, 1, 1);
    auto changed = [&](size_t offset, auto value) {
        return std::string(message).replace(offset, sizeof value, bytes_of(value));
    };
    const u32 length = static_cast<u32>(message.size());
    for (const std::string &dropped :
         {std::string(), std::string(20, '\13'), std::string(21, '\13'), message.substr(0, 20), message.substr(0, length - 4),
          changed(0, length + 4), changed(0, u32{0}), changed(0, u32{15}), changed(0, u32{20}), changed(0, length - 4),
          changed(0, 0xFFFFFFFFu), changed(4, uint16_t{0x10A}), changed(4, uint16_t{0x0C})})
        EXPECT_EQ(feed_traffic(dropped), -1);
    EXPECT_EQ(app(5), nullptr);
    EXPECT_EQ(feed_traffic(changed(4, uint16_t{11}) + accounting_message(app_word(6), start, tablet.ip, 1, 1)), 0);
    EXPECT_NE(app(5), nullptr);
    EXPECT_EQ(app(6), nullptr) << "only the first message of a datagram counts";
    EXPECT_EQ(feed_traffic(accounting_message(app_word(7), start, tablet.ip, 1, 1) + std::string(9000, 'x')), 0);
    EXPECT_NE(app(7), nullptr);
}

TEST_F(messages, router_messages)
{
    know(tablet);
    const std::string comes = host_message(0, tablet.mac),
                      payment = app_message(0, app_word(300), 9, tablet.mac, inet_addr(tablet.ip));
    igd_netlink_handler channel{};
    EXPECT_EQ(handle_igd_msg(&channel), -1) << "nothing to receive";
    EXPECT_EQ(feed_router(host_message(3, tablet.mac)), 0);
    for (size_t cut = 1; cut < 46; ++cut)
        feed_router(comes.substr(0, cut));
    EXPECT_EQ(record(tablet), nullptr);
    EXPECT_EQ(feed_router(comes.substr(0, 46)), 0);
    device_record *dev = record(tablet);
    ASSERT_NE(dev, nullptr);
    feed_router(host_message(2, tablet.mac).substr(0, 45));
    feed_router(host_message(1, tablet.mac));
    EXPECT_EQ(record(tablet), dev);
    // A payment app's message brings its device to life; other ids, classes, vendors and actions do not.
    for (const std::string &ignored :
         {std::string(payment).replace(12, 4, bytes_of(10)), std::string(payment).replace(8, 4, bytes_of(7)),
          std::string(payment).replace(4, 4, bytes_of(1)), std::string(payment).replace(4, 4, bytes_of(2)),
          payment.substr(0, 99), app_message(0, app_word(303), 9, tablet.mac, 0),
          app_message(0, app_word(300, 0, 2), 9, tablet.mac, 0)}) {
        feed_router(ignored);
        EXPECT_EQ(dev->device_state, -1);
    }
    EXPECT_EQ(feed_router(payment.substr(0, 100)), 0);
    EXPECT_EQ(dev->device_state, 1);
    EXPECT_STREQ(dev->ip, tablet.ip);
    leave(tablet);
    EXPECT_EQ(record(tablet), nullptr);
}

// All three wait at once. The loop never ends, so it runs in a child, which ends with its first request.
TEST_F(messages, traffic_goes_before_events_and_these_before_requests)
{
    arrive(tablet);
    sent();
    int ends[3][2];
    for (auto &pair : ends) {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, pair), 0);
        ASSERT_EQ(send(pair[0], "", 1, 0), 1);
    }
    const std::string flow = accounting_message(app_word(5), start, tablet.ip, 1, 1);
    ASSERT_GT(send(ends[0][0], flow.data(), flow.size(), 0), 0);
    platform.router_messages = {host_message(2, tablet.mac)};
    platform.serve_request = [] {
        const lines told = sent();
        _exit(told.size() == 4 && told[3] == presence("offline", 5, evening, 0, 0) && record(tablet) == nullptr ? 0 : 1);
        return 0;
    };
    pid_t child = fork();
    if (child == 0) {
        igd_netlink_handler channel = {};
        channel.sock_fd = ends[1][1];
        serve_events(ends[0][1], &channel, ends[2][1]);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

// A descriptor that is no longer open fails every wait, and what has come is served all the same.
TEST_F(messages, a_failed_wait_does_not_stop_the_loop)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
    const int closed = dup(ends[0]);
    close(closed);
    pid_t child = fork();
    if (child == 0) {
        igd_netlink_handler channel = {};
        channel.sock_fd = closed;
        serve_events(ends[1], &channel, -1);
    }
    ASSERT_EQ(send(ends[0], "", 1, 0), 1);
    int waiting = 1;
    for (int i = 0; i < 500 && waiting > 0; ++i, usleep(10000))
        ioctl(ends[0], SIOCOUTQ, &waiting);
    EXPECT_EQ(waiting, 0) << "nobody has read it";
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(messages, mac_texts_and_lan_settings)
{
    const unsigned char mac[6] = {0, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
    char buf[20] = "untouched";
    for (const char *refused :
         {get_mac_str_by_mac(mac, buf, 17), get_mac_str_by_mac(nullptr, buf, 18), get_mac_str_by_ip(0x0B01A8C0, buf, 18)})
        EXPECT_EQ(refused, nullptr);
    EXPECT_STREQ(buf, "untouched");
    EXPECT_STREQ(get_mac_str_by_mac(mac, buf, 18), "00-1A-2B-3C-4D-5E");
    EXPECT_EQ(plugin_common_init(), 0);
    EXPECT_EQ(logged(), (lines{"[sec_plg_common] lan ip: 192.168.1.1", ""}));
    platform.failing = {"get_lan_config"};
    EXPECT_EQ(plugin_common_init(), -1);
}

TEST_F(messages, the_log_file)
{
    struct stat info {};
    ASSERT_EQ(fstat(log_fd, &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0u) << "a new log has no permission bits, on purpose";
    const std::string path = directory + "/readable", missing = directory + "/none/log", stamp = "[2026-03-10 20:00:00]";
    auto text_from = [&](size_t offset) {
        std::ifstream file(path);
        file.seekg(static_cast<std::streamoff>(offset));
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    // The end of the log after a line more in a file of that size.
    auto log_into = [&](size_t size, const std::string &line) {
        url_check_cleanup();
        std::ofstream(path).close();
        std::filesystem::resize_file(path, size);
        log_file = path.c_str();
        url_check_init();
        EXPECT_EQ(log_file_size, size > 2097152 ? 0 : size);
        url_check_log(1, "[%s", line.c_str());
        url_check_log(2, "never");
        return text_from(log_file_size - std::min<size_t>(line.size() + 23, 4097));
    };
    // It stays below two mebibytes: sizes before and after a line of 25 bytes. Long lines are cut.
    for (auto [before, after] : {std::pair{0u, 25u}, {2097127, 2097152}, {2097128, 25}, {2097152, 25}, {2097153, 25}}) {
        EXPECT_EQ(log_into(before, "x]"), stamp + "[x]\n");
        EXPECT_EQ(log_file_size, after);
    }
    for (size_t length : {4074u, 4075u, 5000u})
        EXPECT_EQ(log_into(0, std::string(length, 'y')), stamp + "[" + std::string(std::min<size_t>(length, 4074), 'y') + "\n");
    // A line that cannot be written counts, and the log is opened again, whatever the number was.
    close(log_fd);
    for (const char *line : {"two\n", "three"}) {
        size_t before = std::filesystem::file_size(path);
        url_check_log(0, "lost");
        EXPECT_EQ(log_file_size, before + 26u);
        url_check_log(0, "%s", line);
        EXPECT_EQ(text_from(before), stamp + line + "\n");
        url_check_cleanup();
        EXPECT_EQ(log_fd, -1);
        log_fd = 1 << 24; // nobody's
    }
    // Without any log lines go to the screen.
    log_file = missing.c_str();
    url_check_init();
    EXPECT_EQ(log_fd, -1);
    testing::internal::CaptureStdout();
    url_check_log(0, "%s %d", "to the screen", 1);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), stamp + "to the screen 1\n");
}
