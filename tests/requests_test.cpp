// The answers to requests 6 to 9, to the byte, and what is refused.
#include "tests/support/household.h"

#include <string.h>

class requests : public household {
protected:
    // "RESULT LENGTH TEXT" of a request with a buffer of that capacity.
    static std::string ask(unsigned int id, std::string text, unsigned int capacity = 4000)
    {
        std::string buffer(capacity + 8, '#');
        unsigned int length = capacity;
        int result = cgi_event_handler(id, buffer.data(), text.data(), &length);
        EXPECT_EQ(buffer.substr(capacity), "########") << "written beyond the capacity";
        EXPECT_FALSE(lock_is_held());
        return std::to_string(result) + " " + std::to_string(length) + " " +
               buffer.substr(0, buffer.find_first_of(std::string("#\0", 2)));
    }
    static std::string success(const std::string &rest)
    {
        std::string text = "{\"err_no\":\"0\",\"err_msg\":\"success\"," + rest + "}";
        return "0 " + std::to_string(text.size()) + " " + text;
    }
    // An app on the time axis, filled in by hand.
    static void use(device_record *dev, int slot, u32 id, u32 minutes)
    {
        dev->apps[slot].app_id = id;
        dev->apps[slot].time_axis_app_state = APP_USING;
        dev->apps[slot].time_axis_start_time = evening;
        dev->apps[slot].time_axis_period_time = minutes;
    }
    static std::string used(u32 id, u32 minutes)
    {
        return "{\"appid\":" + std::to_string(id) +
               ",\"starttime\":1773172800,\"endtime\":0,\"sumtime\":" + std::to_string(minutes) + "}";
    }
};

TEST_F(requests, apps_in_use)
{
    device_record *dev = arrive(tablet);
    EXPECT_EQ(ask(6, tablet.mac), "0 0 ") << "listed, not active yet";
    hit(5, start);
    EXPECT_EQ(ask(6, tablet.mac), success("\"data\":[]")) << "one started minute";
    EXPECT_EQ(ask(7, tablet.mac), success("\"data\":[" + used(5, 0) + "]"));
    wait(61);
    hit(5, more);
    hit(4, more);
    EXPECT_EQ(ask(6, tablet.mac), success("\"data\":[{\"appid\":5,\"starttime\":1773172800,\"endtime\":0,\"sumtime\":1}]"));
    EXPECT_EQ(ask(7, tablet.mac), ask(6, tablet.mac));
    arrive(phone);
    const std::string both = std::string("{\"device\":[\"") + phone.mac + "\",7,\"" + tablet.mac + "\",null,\"nobody\"]}";
    auto listed = [](const std::string &apps) {
        return success(
            "\"results\":[{\"device\":\"02-00-00-00-00-0B\",\"data\":[]},{\"device\":\"02-00-00-00-00-0A\",\"data\":[" + apps +
            "]},{\"device\":\"nobody\",\"data\":[]}]");
    };
    EXPECT_EQ(ask(8, both), listed(used(5, 1)));
    dev->apps[0].time_axis_period_time = 1;
    EXPECT_EQ(ask(8, both), listed(""));
    EXPECT_EQ(ask(9, both), listed(used(5, 0)));
    // Payment flows never show; a slot without app id shows for one device only; record order.
    const u32 ids[] = {300, 301, 302, 303, 310, 311, 312, 313, 0, 6};
    for (int i = 0; i < 10; ++i)
        use(dev, 20 + i, ids[i], 3);
    use(dev, 0, 5, 0);
    const std::string shown = used(303, 2) + "," + used(312, 2);
    for (unsigned int id : {6u, 7u})
        EXPECT_EQ(ask(id, tablet.mac), success("\"data\":[" + shown + "," + used(0, 2) + "," + used(6, 2) + "]"));
    for (unsigned int id : {8u, 9u})
        EXPECT_EQ(ask(id, both), listed(shown + "," + used(6, 2)));
    for (const char *role : {"0", "-2"}) {
        platform.device(tablet.mac).role = role;
        EXPECT_EQ(ask(7, tablet.mac), success("\"data\":[]"));
        EXPECT_EQ(ask(9, both), listed(""));
    }
    dev->device_state = 0;
    EXPECT_EQ(ask(7, tablet.mac), "0 0 ");
    EXPECT_EQ(ask(9, both), listed(""));
    EXPECT_EQ(ask(6, "02-00-00-00-00-0a"), "0 0 ") << "nobody of that name";
}

TEST_F(requests, lengths)
{
    arrive(tablet);
    hit(5, start);
    const std::string list = std::string("{\"device\":[\"") + tablet.mac + "\"]}";
    for (unsigned int id : {6u, 7u, 8u, 9u}) {
        SCOPED_TRACE(id);
        const std::string asked = id < 8 ? std::string(tablet.mac) : list, whole = ask(id, asked);
        const std::string text = whole.substr(whole.find('{')), length = "0 " + std::to_string(text.size()) + " ";
        const unsigned int size = static_cast<unsigned int>(text.size());
        EXPECT_EQ(ask(id, asked, size + 1), whole);
        EXPECT_EQ(ask(id, asked, size), length + text.substr(0, size - 1));
        EXPECT_EQ(ask(id, asked, 10), length + text.substr(0, 9));
        EXPECT_EQ(ask(id, asked, 1), length);
        EXPECT_EQ(ask(id, asked, 0), "-1 0 ");
        char buffer[64] = "kept";
        unsigned int capacity = sizeof buffer;
        EXPECT_EQ(cgi_event_handler(id, nullptr, const_cast<char *>(asked.c_str()), &capacity), -1);
        EXPECT_EQ(cgi_event_handler(id, buffer, nullptr, &capacity), -1);
        EXPECT_EQ(cgi_event_handler(id, buffer, const_cast<char *>(asked.c_str()), nullptr), -1);
        EXPECT_STREQ(buffer, "kept");
    }
    for (const char *bad :
         {"", "{", "[]", "{}", "{\"device\":[]}", "{\"device\":null}", "{\"device\":\"x\"}", "{\"device\":{\"a\":\"b\"}}"})
        for (unsigned int id : {8u, 9u})
            EXPECT_EQ(ask(id, bad), "-1 0 ") << bad;
    EXPECT_EQ(ask(8, "{\"device\":[1,{}]}"), success("\"results\":[]"));
}

TEST_F(requests, ids_without_a_handler)
{
    arrive(tablet);
    for (unsigned int id : {0u, 5u, 10u, 15u, 0x10006u, 0xFFFFFFFFu})
        EXPECT_EQ(ask(id, tablet.mac), "-1 4000 ") << id;
}
