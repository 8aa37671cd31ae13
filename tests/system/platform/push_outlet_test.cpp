// Pushes and status records, read from the spool and by subscribers.
#include "tests/system/platform/place.h"

#include "common/guards.h"
#include "igd/igd_lib.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/socket.h>
#include <utility>

using namespace std::literals;

namespace {

std::pair<std::string, u64> run_and_seq(const std::string &line)
{
    json_tree read(cJSON_Parse(line.c_str()));
    const char *run = cJSON_GetStringValue(cJSON_GetObjectItem(read.get(), "run"));
    return {run ? run : "", static_cast<u64>(cJSON_GetNumberValue(cJSON_GetObjectItem(read.get(), "seq")))};
}

TEST(push_outlet, reaches_the_spool_and_every_subscriber_and_nobody_waits)
{
    ASSERT_GE(nt_ipcserver_init2(socket_path.c_str(), refuse), 0);
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
    EXPECT_TRUE(counts("pushes_accepted", accepted));
    EXPECT_TRUE(counts("pushes_dropped", 2004 - accepted));
    EXPECT_TRUE(comes_true([] { return counter_of("subscribers_dropped") == 2; }));
    EXPECT_TRUE(comes_true([] { return new_push_msg(1008, "\"the last\"", 0) == 0; }));
    EXPECT_TRUE(comes_true([] { return read_file("run/pushes.jsonl").find("the last") != std::string::npos; }));
    // Whatever was refused has taken its number.
    std::string spooled = read_file("run/pushes.jsonl");
    auto [of, number] = run_and_seq(spooled.substr(spooled.rfind('{')));
    EXPECT_EQ(of, run);
    EXPECT_TRUE(comes_true([&, seq = number] { return counter_of("pushes_accepted") + counter_of("pushes_dropped") == seq; }));
    for (const char *name : {"run/pushes.jsonl", "run/pushes.jsonl.1"})
        EXPECT_LE(std::filesystem::file_size(home + name), 8192u) << name;
    EXPECT_TRUE(counts("spool_failed", 0u));
}

TEST(push_outlet, keeps_room_for_what_is_told_once)
{
    const std::string large = "\"" + std::string(2000, 'x') + "\"";
    app_info_sync_st status = {1001, 0, 2, 1700000000, {0xAA, 0, 0, 0, 0, 1}};
    int refused = 0;
    for (int i = 0; i < 20000; ++i) {
        bool presence = new_push_msg(1023, large.c_str(), 0) == 0;
        bool state = app_info_to_devpush(&status, 1) == 0;
        refused += !presence || !state;
        // In a burst of starts no closing push is lost: one for ten of them.
        if (i % 10 == 0) {
            ASSERT_EQ(new_push_msg(1008, "{}", 0), 0) << i;
        }
    }
    EXPECT_GT(refused, 0) << "the burst was none";
}

} // namespace
