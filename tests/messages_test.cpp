// What comes in as bytes: accounting messages and router messages, well formed, cut short and hostile; MAC texts; the log file.
#include "common/log.h"
#include "tests/support/household.h"

#include <arpa/inet.h>
#include <endian.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <memory>
#include <random>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

class messages : public household {
protected:
    // Decodes from a buffer of exactly the message's size, so that a read beyond it is caught.
    static int decode(const std::string &message, app_data *out)
    {
        auto exact = std::make_unique<char[]>(message.size());
        memcpy(exact.get(), message.data(), message.size());
        memset(out, 0, sizeof *out);
        return process_app_acct_message(reinterpret_cast<nlmsghdr *>(exact.get()), out);
    }
};

static std::string text_of(const app_data &d)
{
    return std::to_string(d.appid) + " " + std::to_string(d.ruleid) + " " + std::to_string(d.upperlimit) + " " + d.req_src_ip +
           ">" + d.req_dst_ip + " " + d.req_proto + " " + std::to_string(d.req_bytes) + " " + d.rep_src_ip + ">" +
           d.rep_dst_ip + " " + d.rep_proto + " " + std::to_string(d.rep_bytes);
}

static const std::string app_id = attribute(27, bytes_of(u32{11})), rule_id = attribute(28, bytes_of(u32{12})),
                         limit = attribute(29, bytes_of(u32{13}));
static const std::string there = attribute(1, tuple("192.168.0.23", "1.2.3.4", 14)),
                         back = attribute(2, tuple("1.2.3.4", "255.255.255.255", 15));

TEST_F(messages, accounting_attributes)
{
    const std::string ids = app_id + rule_id + limit, number = attribute(1, "\6"), short_u32(3, '\1');
    const std::string from_six(htole16(6) - 4u, '\21'); // an attribute of it has a length whose first byte is 6
    const std::string full = "11 12 13 192.168.0.23>1.2.3.4 udp 14 1.2.3.4>255.255.255.255 udp 15";
    const std::string half = "11 12 13 192.168.0.23>1.2.3.4 udp 14 >  0";
    auto with_tuple = [&](const std::string &inside) { return ids + attribute(1, inside) + back; };
    auto decoded = [](const std::string &req) { return "11 12 13 " + req + " 1.2.3.4>255.255.255.255 udp 15"; };
    const struct {
        std::string attributes;
        int result;
        std::string record;
    } table[] = {
        {ids + there + back, 0, full},
        {back + attribute(24, "noise") + there + limit + rule_id + app_id + attribute(27, bytes_of(u32{99})), 0, full},
        {ids + attribute(1 | NLA_F_NESTED, there.substr(4)) + attribute(2 | NLA_F_NESTED, back.substr(4)), 0, full},
        {"", -1, "0 0 0 >  0 >  0"},
        {rule_id + limit + there + back, -1, "0 0 0 >  0 >  0"},
        {attribute(27, short_u32) + rule_id + limit + there + back, -1, "0 0 0 >  0 >  0"},
        {app_id + limit + there + back, -1, "11 0 0 >  0 >  0"},
        {app_id + rule_id + there + back, -1, "11 12 0 >  0 >  0"},
        {ids + back, -1, "11 12 13 >  0 >  0"},
        {ids + there, -1, half},
        {with_tuple(""), 0, decoded(">  0")},
        {with_tuple(attribute(2, number)), 0, decoded("> udp 0")},
        // The text looks at the first byte of the nest, so a first child whose length starts with 6 makes "tcp", on purpose.
        {with_tuple(attribute(2, attribute(1, from_six))), 0, decoded("> tcp 0")},
        {with_tuple(attribute(2, attribute(9, from_six) + number)), 0, decoded("> tcp 0")},
        {with_tuple(attribute(2, attribute(9, from_six))), 0, decoded(">  0")},
        {with_tuple(attribute(3, attribute(26, bytes_of(u32{7}) + bytes_of(u32{0})) + attribute(25, bytes_of(u32{8})))), 0,
         decoded(">  7")},
        {with_tuple(attribute(3, attribute(26, bytes_of(u32{7})) + attribute(26, bytes_of(u32{8})))), 0, decoded(">  8")},
        {with_tuple(attribute(3, attribute(26, short_u32))), 0, decoded(">  0")},
        {with_tuple(attribute(1, attribute(1, short_u32) + attribute(3, bytes_of(u32{1})))), 0, decoded(">  0")},
        {with_tuple(attribute(7, "?") + attribute(1, attribute(2, "\1\2\3\4"))), 0, decoded(">1.2.3.4  0")},
    };
    app_data out;
    for (const auto &row : table) {
        SCOPED_TRACE(&row - table);
        EXPECT_EQ(decode(netlink_message(11, row.attributes), &out), row.result);
        EXPECT_EQ(text_of(out), row.record);
    }
    std::string whole = netlink_message(11, table[0].attributes);
    EXPECT_EQ(process_app_acct_message(reinterpret_cast<nlmsghdr *>(whole.data()), nullptr), -1);
}

TEST_F(messages, traffic_datagrams)
{
    arrive(tablet);
    std::string message = accounting_message(app_word(5), start, tablet.ip, 1, 1);
    auto changed = [&](size_t offset, auto value) {
        return std::string(message).replace(offset, sizeof value, bytes_of(value));
    };
    const u32 length = static_cast<u32>(message.size());
    for (const std::string &dropped :
         {std::string(), std::string(20, '\13'), std::string(21, '\13'), message.substr(0, 20), message.substr(0, 21),
          message.substr(0, length - 4), changed(0, length + 4), changed(0, u32{0}), changed(0, u32{15}), changed(0, u32{20}),
          changed(0, length - 4), changed(0, 0xFFFFFFFFu), changed(4, uint16_t{0x10A}), changed(4, uint16_t{0x0C})})
        EXPECT_EQ(feed_traffic(dropped), -1);
    EXPECT_EQ(handle_traffic_event(-1), -1);
    EXPECT_EQ(app(5), nullptr);
    EXPECT_EQ(feed_traffic(changed(4, uint16_t{11}) + accounting_message(app_word(6), start, tablet.ip, 1, 1)), 0);
    EXPECT_NE(app(5), nullptr);
    EXPECT_EQ(app(6), nullptr) << "only the first message of a datagram counts";
    EXPECT_EQ(feed_traffic(accounting_message(app_word(7), start, tablet.ip, 1, 1) + std::string(9000, 'x')), 0);
    EXPECT_NE(app(7), nullptr);
}

TEST_F(messages, hostile_bytes_end_in_one_dropped_event)
{
    arrive(tablet);
    const std::string good[] = {accounting_message(app_word(5), start, tablet.ip, 1, 1), host_message(0, phone.mac),
                                app_message(0, app_word(300), 9, tablet.mac, 0)};
    std::mt19937 dice(20260310);
    app_data out;
    for (int kind = 0; kind < 3; ++kind) {
        auto feed = [&](const std::string &bytes) { return kind == 0 ? feed_traffic(bytes) : feed_router(bytes); };
        for (size_t length = 0; length <= good[kind].size(); ++length)
            feed(good[kind].substr(0, length));
        for (size_t at = 0; at < std::min<size_t>(good[kind].size(), 200); ++at)
            for (int value : {0, 1, 3, 5, 0x7F, 0x80, 0xFF}) {
                std::string bad = good[kind];
                bad[at] = static_cast<char>(value);
                feed(bad);
                if (kind == 0 && at >= 16)
                    decode(bad, &out);
            }
        for (int round = 0; round < 3000; ++round) {
            std::string bad = good[kind];
            for (int edits = 0; edits < 4; ++edits)
                bad[dice() % bad.size()] = static_cast<char>(dice());
            feed(bad);
        }
    }
    leave(tablet);
    arrive(tablet);
    hit(5, start);
    EXPECT_NE(app(5), nullptr);
    EXPECT_FALSE(lock_is_held());
}

TEST_F(messages, router_messages)
{
    know(tablet);
    igd_netlink_handler channel{};
    EXPECT_EQ(handle_igd_msg(&channel), -1) << "nothing to receive";
    EXPECT_EQ(feed_router(""), -1);
    for (int action : {1, 2, 3, -1})
        EXPECT_EQ(feed_router(host_message(action, tablet.mac)), 0);
    for (size_t cut : {4u, 35u, 36u, 45u})
        feed_router(host_message(0, tablet.mac).substr(0, cut));
    EXPECT_EQ(record(tablet), nullptr);
    EXPECT_EQ(feed_router(host_message(0, tablet.mac).substr(0, 46)), 0);
    device_record *dev = record(tablet);
    ASSERT_NE(dev, nullptr);
    for (size_t cut : {45u, 46u})
        feed_router(host_message(2, phone.mac).substr(0, cut));
    feed_router(host_message(1, tablet.mac));
    EXPECT_EQ(record(tablet), dev);
    // A payment app's message brings its device to life; other ids, classes, vendors and actions do not.
    const u32 ip = inet_addr("192.168.1.11"), word = app_word(300);
    const std::string payment = app_message(0, word, 9, tablet.mac, ip);
    for (const std::string &ignored :
         {std::string(payment).replace(12, 4, bytes_of(10)), std::string(payment).replace(8, 4, bytes_of(7)),
          app_message(1, word, 9, tablet.mac, ip), app_message(2, word, 9, tablet.mac, ip), payment.substr(0, 99),
          app_message(0, app_word(303), 9, tablet.mac, ip), app_message(0, app_word(300, 0, 2), 9, tablet.mac, ip)}) {
        feed_router(ignored);
        EXPECT_EQ(dev->device_state, -1);
    }
    EXPECT_EQ(feed_router(payment.substr(0, 100)), 0);
    EXPECT_EQ(dev->device_state, 1);
    EXPECT_STREQ(dev->ip, "192.168.1.11");
    feed_router(host_message(2, tablet.mac));
    EXPECT_EQ(record(tablet), nullptr);
}

TEST_F(messages, mac_texts_and_lan_settings)
{
    const unsigned char mac[6] = {0, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
    char buf[20] = "untouched";
    EXPECT_EQ(get_mac_str_by_mac(mac, buf, 17), nullptr);
    EXPECT_EQ(get_mac_str_by_mac(nullptr, buf, 18), nullptr);
    EXPECT_EQ(get_mac_str_by_mac(mac, nullptr, 18), nullptr);
    know(tablet);
    EXPECT_EQ(get_mac_str_by_ip(inet_addr("192.168.1.11"), buf, 17), nullptr);
    EXPECT_EQ(get_mac_str_by_ip(inet_addr("192.168.1.11"), nullptr, 18), nullptr);
    EXPECT_EQ(get_mac_str_by_ip(0x0B01A8C1, buf, 18), nullptr);
    EXPECT_STREQ(buf, "untouched");
    EXPECT_EQ(get_mac_str_by_mac(mac, buf, 18), buf);
    EXPECT_STREQ(buf, "00-1A-2B-3C-4D-5E");
    EXPECT_EQ(get_mac_str_by_ip(inet_addr("192.168.1.11"), buf, 18), buf);
    EXPECT_STREQ(buf, tablet.mac);
    EXPECT_EQ(plugin_common_init(), 0);
    EXPECT_EQ(logged(), (lines{"[sec_plg_common] lan ip: 192.168.1.1", ""}));
    platform.failing = {"get_lan_config"};
    EXPECT_EQ(plugin_common_init(), -1);
    EXPECT_EQ(g_lan_cfg.ip.s_addr, 0u);
}

class log_files : public messages {
protected:
    // A file of that many bytes, opened as the log. Readable, unlike one that the log makes.
    void open_log(const char *name, off_t size)
    {
        url_check_cleanup();
        EXPECT_EQ(log_fd, -1);
        path = directory + "/" + name;
        close(open(path.c_str(), O_CREAT | O_RDWR, 0600));
        EXPECT_EQ(truncate(path.c_str(), size), 0);
        log_file = path.c_str();
        url_check_init();
    }
    off_t size() const
    {
        struct stat info {};
        EXPECT_EQ(stat(path.c_str(), &info), 0);
        return info.st_size;
    }
    std::string last_bytes(size_t count) const
    {
        std::string text(count, '\0');
        EXPECT_EQ(pread(log_fd, text.data(), count, size() - static_cast<off_t>(count)), static_cast<ssize_t>(count));
        return text;
    }
    std::string path;
};

TEST_F(log_files, stay_below_two_mebibytes)
{
    constexpr off_t most = 2097152, line = 21 + 3 + 1;
    struct stat info {};
    ASSERT_EQ(fstat(log_fd, &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0u) << "a new log has no permission bits, on purpose";
    const struct {
        off_t before, opened, after;
    } table[] = {{0, 0, line},
                 {most - line, most - line, most},
                 {most - line + 1, most - line + 1, line},
                 {most, most, line},
                 {most + 1, 0, line}};
    for (const auto &row : table) {
        open_log("log", row.before);
        EXPECT_EQ(size(), row.opened);
        EXPECT_EQ(log_file_size, static_cast<unsigned long>(row.opened));
        url_check_log(0, "[%s", "x]");
        EXPECT_EQ(size(), row.after);
        EXPECT_EQ(log_file_size, static_cast<unsigned long>(row.after));
        EXPECT_EQ(last_bytes(line), "[2026-03-10 20:00:00][x]\n");
    }
}

TEST_F(log_files, cut_lines_and_levels)
{
    open_log("lines", 0);
    for (size_t length : {4074u, 4075u, 4076u, 5000u}) {
        off_t before = size();
        url_check_log(1, "%s", std::string(length, 'y').c_str());
        size_t kept = std::min<size_t>(length, 4075);
        EXPECT_EQ(size() - before, static_cast<off_t>(21 + kept + 1));
        EXPECT_EQ(last_bytes(kept + 1), std::string(kept, 'y') + "\n");
    }
    off_t before = size();
    url_check_log(2, "never");
    EXPECT_EQ(size(), before);
    url_check_log(0, "two\n");
    EXPECT_EQ(last_bytes(26), "[2026-03-10 20:00:00]two\n\n");
}

TEST_F(log_files, that_cannot_be_written)
{
    open_log("lost", 0);
    close(log_fd);
    unsigned long before = log_file_size;
    url_check_log(0, "lost");
    EXPECT_GE(log_fd, 0) << "opened again";
    EXPECT_EQ(log_file_size, before + 26);
    url_check_log(0, "found");
    EXPECT_EQ(last_bytes(27), "[2026-03-10 20:00:00]found\n");
    url_check_cleanup();
    path = directory + "/none/log";
    log_file = path.c_str();
    url_check_init();
    testing::internal::CaptureStdout();
    url_check_log(0, "%s %d", "to the screen", 1);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "[2026-03-10 20:00:00]to the screen 1\n");
}
