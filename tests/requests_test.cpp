// The answers to requests 6 to 9, to the byte, and what is refused.
#include "tests/support/config_files.h"

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
        std::string text = json("{'err_no':'0','err_msg':'success'," + rest + "}");
        return "0 " + std::to_string(text.size()) + " " + text;
    }
    static std::string used(u32 id, u32 minutes)
    {
        return "{'appid':" + std::to_string(id) + ",'starttime':1773172800,'endtime':0,'sumtime':" + std::to_string(minutes) +
               "}";
    }
};

TEST_F(requests, apps_in_use)
{
    device_record *dev = arrive(tablet);
    EXPECT_EQ(ask(6, tablet.mac), "0 0 ") << "listed, not active yet";
    hit(5, start);
    EXPECT_EQ(ask(6, tablet.mac), success("'data':[]")) << "one started minute";
    EXPECT_EQ(ask(7, tablet.mac), success("'data':[" + used(5, 0) + "]"));
    wait(61);
    hit(5, more);
    hit(4, more);
    for (unsigned int id : {6u, 7u})
        EXPECT_EQ(ask(id, tablet.mac), success("'data':[{'appid':5,'starttime':1773172800,'endtime':0,'sumtime':1}]"));
    arrive(phone);
    const std::string both = json("{'device':['02-00-00-00-00-0B',7,'@',null,'nobody']}");
    auto listed = [](const std::string &apps) {
        return success("'results':[{'device':'02-00-00-00-00-0B','data':[]},{'device':'@','data':[" + apps +
                       "]},{'device':'nobody','data':[]}]");
    };
    EXPECT_EQ(ask(8, both), listed(used(5, 1)));
    dev->apps[0].time_axis_period_time = 1;
    EXPECT_EQ(ask(8, both), listed(""));
    EXPECT_EQ(ask(9, both), listed(used(5, 0)));
    // Payment flows never show; a slot without app id shows for one device only; record order.
    app_ident_record *slot = &dev->apps[20];
    for (u32 id : {300, 301, 302, 303, 310, 311, 312, 313, 0, 6}) {
        slot->app_id = id;
        slot->time_axis_app_state = APP_USING;
        slot->time_axis_start_time = evening;
        slot++->time_axis_period_time = 3;
    }
    dev->apps[0].time_axis_period_time = 0;
    const std::string shown = used(303, 2) + "," + used(312, 2) + ",";
    for (unsigned int id : {6u, 7u}) {
        EXPECT_EQ(ask(id, tablet.mac), success("'data':[" + shown + used(0, 2) + "," + used(6, 2) + "]"));
        EXPECT_EQ(ask(id + 2, both), listed(shown + used(6, 2)));
    }
    for (const char *role : {"0", "-2"}) {
        platform.device(tablet.mac).role = role;
        EXPECT_EQ(ask(7, tablet.mac), success("'data':[]"));
        EXPECT_EQ(ask(9, both), listed(""));
    }
    dev->device_state = 0;
    EXPECT_EQ(ask(7, tablet.mac), "0 0 ");
    EXPECT_EQ(ask(9, both), listed(""));
    EXPECT_EQ(ask(6, "02-00-00-00-00-0a"), "0 0 ") << "nobody of that name";
}

TEST_F(requests, lengths_and_refusals)
{
    arrive(tablet);
    hit(5, start);
    for (unsigned int id : {6u, 7u, 8u, 9u}) {
        SCOPED_TRACE(id);
        const std::string asked = id < 8 ? tablet.mac : json("{'device':['@']}"), whole = ask(id, asked);
        const std::string text = whole.substr(whole.find('{')), length = "0 " + std::to_string(text.size()) + " ";
        const unsigned int size = static_cast<unsigned int>(text.size());
        EXPECT_EQ(ask(id, asked, size + 1), whole);
        for (unsigned int capacity : {size, 10u, 1u})
            EXPECT_EQ(ask(id, asked, capacity), length + text.substr(0, capacity - 1));
        EXPECT_EQ(ask(id, asked, 0), "-1 0 ");
        std::string buffer = asked;
        unsigned int capacity = size;
        EXPECT_EQ(cgi_event_handler(id, nullptr, buffer.data(), &capacity), -1);
        EXPECT_EQ(cgi_event_handler(id, buffer.data(), nullptr, &capacity), -1);
        EXPECT_EQ(cgi_event_handler(id, buffer.data(), buffer.data(), nullptr), -1);
        EXPECT_EQ(buffer, asked);
    }
    for (const char *bad : {"", "{", "[]", "{}", "{'device':[]}", "{'device':null}", "{'device':'x'}", "{'device':{'a':'b'}}"})
        for (unsigned int id : {8u, 9u})
            EXPECT_EQ(ask(id, json(bad)), "-1 0 ") << bad;
    EXPECT_EQ(ask(8, json("{'device':[1,{}]}")), success("'results':[]"));
    for (unsigned int id : {0u, 5u, 10u, 15u, 0x10006u, 0xFFFFFFFFu})
        EXPECT_EQ(ask(id, tablet.mac), "-1 4000 ") << id << ": no handler";
}
