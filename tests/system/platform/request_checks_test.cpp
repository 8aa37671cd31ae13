// What a request must look like to reach the daemon.
#include "common/guards.h"
#include "platform/linux/request_checks.h"

#include <gtest/gtest.h>
#include <string.h>
#include <string>
#include <vector>

using namespace std::literals;

namespace {

const std::string mac = "AA-BB-CC-00-00-01";

std::string packet(u32 id, const std::string &device, const std::string &text)
{
    request_head head = {request_magic, id, 1, 100, static_cast<u32>(device.size()), static_cast<u32>(text.size())};
    return std::string(reinterpret_cast<char *>(&head), sizeof head) + device + text;
}

bool passes(u32 id, const std::string &device, const std::string &text = "")
{
    std::string whole = packet(id, device, text);
    return request_makes_sense(whole.data(), whole.size());
}

std::string limits(const std::string &data, const std::string &device = mac)
{
    return "{\"device\":\"" + device + "\",\"data\":" + data + "}";
}

std::string switches_of(const std::string &text)
{
    appident_payment_notify_st record = {};
    text.copy(record.mac, sizeof record.mac);
    return {reinterpret_cast<char *>(&record), sizeof record};
}

TEST(request_checks, a_device_is_an_upper_case_mac)
{
    for (u32 id : {6u, 7u, 12u, 13u, 14u}) {
        auto passes_as = [&](const std::string &device) {
            return id > 12 ? passes(id, "", switches_of(device)) : passes(id, device);
        };
        EXPECT_TRUE(passes_as(mac)) << id;
        for (const char *other : {"", ".", "..", "a", "AA-BB-CC-00-00-0", "AA-BB-CC-00-00-012", "aA-BB-CC-00-00-01",
                                  "AA:BB:CC:00:00:01", "AA-BB-CC-00-00-0/", "AA-BB-CC-00-00-0\n", "GA-BB-CC-00-00-01"})
            EXPECT_FALSE(passes_as(other)) << id << " " << other;
    }
    EXPECT_FALSE(passes(13, mac, switches_of(mac))) << "only the record";
    EXPECT_FALSE(passes(13, "", switches_of(mac).substr(1)));
    EXPECT_TRUE(passes(8, "{\"device\":[\"any\"]}")) << "a list is the daemon's to judge";
    EXPECT_FALSE(passes(8, std::string("a\0b", 3)));
}

TEST(request_checks, limits_are_one_to_five_of_the_same_device)
{
    std::string five = "{\"class_type\":5,\"more\":[{}]}";
    for (int i = 1; i < 5; ++i)
        five += ",{\"class_type\":" + std::to_string(i) + ",\"onoff\":1,\"use_time\":60,\"appid\":[1001]}";
    EXPECT_TRUE(passes(11, mac, limits("[" + five + "]")));
    std::string many_apps = "{\"class_type\":1,\"appid\":[0";
    for (int i = 1; i < 1280; ++i)
        many_apps += "," + std::to_string(i);
    EXPECT_TRUE(passes(11, mac, limits("[" + many_apps + "]}]")));
    std::string empty_limits, zeros = "[0";
    for (int i = 0; i < 21000; ++i)
        empty_limits += "{},";
    for (int i = 0; i < 30000; ++i)
        zeros += ",0";
    std::vector<std::string> refused = {"not json",
                                        "",
                                        "[]",
                                        "{\"data\":[{\"class_type\":1}]}",
                                        limits("[{\"class_type\":1}]", "AA-BB-CC-00-00-02"),
                                        limits("[{\"class_type\":1}]", "AA-BB-CC-00-00-01x")};
    for (const std::string &data :
         {"{\"class_type\":1}"s, "[]"s, "[{}]"s, "[1]"s, "[{\"class_type\":\"1\"}]"s, "[{\"class_type\":0}]"s,
          "[{\"class_type\":6}]"s, "[{\"class_type\":1.5}]"s, "[{\"class_type\":1},{\"class_type\":1}]"s,
          "[" + five + ",{\"class_type\":1}]", "[" + empty_limits + "{}]", "[{\"class_type\":1,\"appid\":" + zeros + "]}]"})
        refused.push_back(limits(data));
    for (const std::string &text : refused)
        EXPECT_FALSE(passes(11, mac, text)) << text.substr(0, 200);
    EXPECT_FALSE(passes(11, "AA-BB-CC-00-00-0", limits("[{\"class_type\":1}]", "AA-BB-CC-00-00-0")));
}

} // namespace
