// appident-feed as people call it: captures in, lines and exit codes out.
#include "tests/feed/spoken.h"

#include <cjson/cJSON.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr double evening = 1700000000;
const ends phone{"192.168.1.20", "203.0.113.5", 40000, 443};

struct json_delete {
    void operator()(cJSON *tree) const { cJSON_Delete(tree); }
};
using json = std::unique_ptr<cJSON, json_delete>;

struct feed_program : testing::Test {
    std::filesystem::path directory = std::filesystem::temp_directory_path() / ("feed-program-" + std::to_string(getpid()));
    std::string capture = directory / "a.pcap";
    std::string out, errors;

    void SetUp() override { std::filesystem::create_directories(directory); }
    void TearDown() override { std::filesystem::remove_all(directory); }

    int run(const std::string &arguments)
    {
        std::string command =
            FEED_COMMAND " --own-apps '" + (directory / "own.conf").string() + "' --apps " APPS_CONF " " + arguments;
        int status = system((command + " >" + (directory / "out").string() + " 2>" + (directory / "err").string()).c_str());
        for (auto &[text, name] : {std::pair<std::string &, const char *>{out, "out"}, {errors, "err"}}) {
            std::ifstream file(directory / name);
            text.assign(std::istreambuf_iterator<char>(file), {});
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::vector<json> lines() const
    {
        std::vector<json> found;
        for (size_t begin = 0, end = 0; (end = out.find('\n', begin)) != std::string::npos; begin = end + 1)
            found.emplace_back(cJSON_Parse(out.substr(begin, end - begin).c_str()));
        return found;
    }
    static std::string text(const json &line, const char *key)
    {
        const char *value = cJSON_GetStringValue(cJSON_GetObjectItem(line.get(), key));
        return value ? value : "";
    }
    static double value(const json &line, const char *key)
    {
        return cJSON_GetNumberValue(cJSON_GetObjectItem(line.get(), key));
    }

    // A film's connection that begins `at`, with so many kB.
    static std::vector<captured_frame> film(double at, int kilobytes, const ends &of = phone)
    {
        std::vector<captured_frame> frames{
            {at, ethernet_frame(tcp_packet(of, 1, 2, {}), 7)},
            {at, ethernet_frame(tcp_packet(of, 2, 16, tls_records(client_hello("a.nflxvideo.net"))), 7)}};
        for (int i = 0; i < kilobytes; i++)
            frames.push_back({at + 0.001, ethernet_frame(tcp_packet(back(of), 2, 16, bytes(960, 'd')), 1)});
        return frames;
    }
    static std::vector<captured_frame> joined(std::vector<captured_frame> first, const std::vector<captured_frame> &second)
    {
        first.insert(first.end(), second.begin(), second.end());
        return first;
    }
};

} // namespace

TEST_F(feed_program, prints_a_json_object_for_each_message)
{
    write_capture(capture, film(evening, 400));
    ASSERT_EQ(run("--source pcap:" + capture + " --lan private --dry --json"), 0) << errors;
    std::vector<json> told = lines();
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(text(told[0], "device"), "192.168.1.20");
    EXPECT_EQ(text(told[0], "app"), "Netflix");
    EXPECT_EQ(value(told[0], "app_id"), 3001);
    EXPECT_EQ(value(told[0], "time"), evening + 10);
    EXPECT_TRUE(cJSON_IsTrue(cJSON_GetObjectItem(told[0].get(), "marked")));
    EXPECT_EQ(text(told[0], "evidence"), "hello");
    EXPECT_EQ(text(told[0], "host"), "a.nflxvideo.net");
    EXPECT_EQ(value(told[0], "bytes"), value(told[0], "up") + value(told[0], "down"));
    EXPECT_EQ(value(told[0], "down"), 400 * 1000.0);
    EXPECT_NE(errors.find("402 packets; 1 flows: 1 told by hello"), std::string::npos) << errors;

    ASSERT_EQ(run("--source pcap:" + capture + " --dry --json --as 10.9.9.9"), 0);
    EXPECT_EQ(text(lines().at(0), "device"), "10.9.9.9");
    ASSERT_EQ(run("--source pcap:" + capture + " --lan 10.0.0.0/8 --dry --json"), 0);
    EXPECT_EQ(out, "");
}

TEST_F(feed_program, prints_a_line_for_each_flow)
{
    ends other = phone;
    other.from_port++;
    write_capture(capture, joined(film(evening, 2), {{evening + 1, ethernet_frame(udp_packet(other, "?"), 7)}}));
    ASSERT_EQ(run("--source pcap:" + capture + " --flows --json"), 0) << errors;
    std::vector<json> told = lines();
    ASSERT_EQ(told.size(), 2u);
    EXPECT_EQ(text(told[0], "proto"), "tcp");
    EXPECT_EQ(text(told[0], "app"), "Netflix");
    EXPECT_EQ(text(told[0], "evidence"), "hello");
    EXPECT_TRUE(cJSON_IsNull(cJSON_GetObjectItem(told[1].get(), "app")));
    ASSERT_EQ(run("--source pcap:" + capture + " --flows"), 0);
    EXPECT_EQ(out.substr(0, out.find('\n')), "tcp 192.168.1.20:40000 203.0.113.5:443 Netflix hello a.nflxvideo.net 2196");
}

TEST_F(feed_program, squeezes_long_gaps_to_a_minute)
{
    std::vector<captured_frame> frames = joined(film(evening, 400), film(evening + 7200, 400));
    write_capture(capture, frames);
    ASSERT_EQ(run("--source pcap:" + capture + " --dry --json"), 0);
    ASSERT_EQ(lines().size(), 2u);
    EXPECT_EQ(value(lines()[1], "time"), evening + 70);
    ASSERT_EQ(run("--source pcap:" + capture + " --dry --json --true-time"), 0);
    EXPECT_EQ(value(lines().at(1), "time"), evening + 7210);
    // Loops stand one behind the other; 150 kB are too little in one, enough in three.
    write_capture(capture, film(evening, 150));
    ASSERT_EQ(run("--source pcap:" + capture + " --dry --json"), 0);
    EXPECT_EQ(lines().size(), 0u);
    ASSERT_EQ(run("--source pcap:" + capture + " --dry --json --loops 3"), 0);
    EXPECT_EQ(lines().size(), 1u);
}

TEST_F(feed_program, takes_the_owners_apps_and_names_their_bad_lines)
{
    std::ofstream(directory / "own.conf") << "3001 - - 10 5\n9999 9 Mine 1 1 not-a-host\n";
    write_capture(capture, film(evening, 20));
    ASSERT_EQ(run("--source pcap:" + capture + " --dry --json"), 0);
    EXPECT_EQ(lines().size(), 1u);
    EXPECT_NE(errors.find("own.conf:2: 'not-a-host' is no host name; line skipped"), std::string::npos) << errors;
}

TEST_F(feed_program, says_what_is_wrong_and_ends_with_a_code_of_its_own)
{
    std::ofstream(directory / "text") << "this is no capture";
    write_capture(directory / "wifi.pcap", {}, 105);
    write_capture(capture, film(evening, 400));
    std::filesystem::resize_file(capture, std::filesystem::file_size(capture) - 100);
    const struct {
        std::string arguments;
        int code;
        const char *says;
    } cases[] = {
        {"--help", 0, ""},
        {"--version", 0, ""},
        {"--source tape:x --dry", 2, "'tape:x' is no source"},
        {"--source pcap --dry", 2, "'pcap' is no source"},
        {"--source pcap:x --lan house --dry", 2, "'house' is no private|CIDR for --lan"},
        {"--source pcap:x --loops 0 --dry", 2, "'0' is no N for --loops"},
        {"--source pcap:x --wrong", 2, "'--wrong' is no option"},
        {"--source", 2, "'--source' needs an argument"},
        {"--dry extra", 2, "'extra' is one word too many"},
        {"--source pcap:/no/such/file --dry", 3, "/no/such/file: No such file"},
        {"--source pcap:" + (directory / "text").string() + " --dry", 3, "text: "},
        {"--source pcap:" + (directory / "wifi.pcap").string() + " --dry", 3, "link type IEEE802_11 is not known"},
        {"--apps /no/apps --source pcap:" + capture + " --dry", 3, "/no/apps: no catalogue of apps"},
        {"--source pcap:" + capture + " --dry", 0, "truncated"}, // what stands before the cut counts
    };
    for (const auto &one : cases) {
        EXPECT_EQ(run(one.arguments), one.code) << one.arguments;
        EXPECT_NE(errors.find(one.says), std::string::npos) << one.arguments << "\n" << errors;
    }
    EXPECT_NE(out.find("Netflix marked"), std::string::npos);
    run("--help");
    EXPECT_NE(out.find("--true-time"), std::string::npos);
}
