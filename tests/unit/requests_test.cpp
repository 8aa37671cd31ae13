// The answers to the requests, to the byte, what is refused, and what the settings among them do.
#include "tests/kit/config_files.h"

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
    static int set_limits(const std::string &text)
    {
        std::string buffer = json(text), mac = tablet.mac;
        unsigned int length = static_cast<unsigned int>(buffer.size());
        return cgi_event_handler(11, buffer.data(), mac.data(), &length);
    }
    static int payments(unsigned int id, unsigned long number, appident_payment_notify_st &switches)
    {
        int result = cgi_event_handler(id, &switches, reinterpret_cast<void *>(number), nullptr);
        EXPECT_FALSE(lock_is_held()) << id;
        return result;
    }
    // The switches that request 14 shows of a file; "-1" when it refuses.
    static std::string shown()
    {
        appident_payment_notify_st s{"02-00-00-00-00-0A", 9, 9, 9, 9, 9};
        int result = payments(14, 1, s);
        std::string text;
        for (u32 value : {s.enable, s.weixin, s.alipay, s.qqpay, s.applepay})
            text += std::to_string(value);
        return result == 0 ? text : std::to_string(result);
    }
    appident_payment_notify_st on{"02-00-00-00-00-0A", 1, 1, 1, 1, 1};
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
    }
    std::string text = "as it was";
    for (unsigned int id : {6u, 7u, 8u, 9u, 11u, 12u})
        for (int missing : {0, 1, 2}) {
            unsigned int length = 9;
            EXPECT_EQ(cgi_event_handler(id, missing == 0 ? nullptr : text.data(), missing == 1 ? nullptr : text.data(),
                                        missing == 2 ? nullptr : &length),
                      -1);
        }
    EXPECT_EQ(text, "as it was");
    for (const char *bad : {"", "{", "[]", "{}", "{'device':[]}", "{'device':null}", "{'device':'x'}", "{'device':{'a':'b'}}"})
        for (unsigned int id : {8u, 9u})
            EXPECT_EQ(ask(id, json(bad)), "-1 0 ") << bad;
    EXPECT_EQ(ask(8, json("{'device':[1,{}]}")), success("'results':[]"));
    for (unsigned int id : {0u, 5u, 10u, 15u, 0x10006u, 0xFFFFFFFFu})
        EXPECT_EQ(ask(id, tablet.mac), "-1 4000 ") << id << ": no handler";
}

TEST_F(requests, limits_are_stored_applied_and_shown)
{
    know(tablet);
    EXPECT_EQ(ask(12, tablet.mac), "0 0 ");
    EXPECT_EQ(set_limits("{'device':'@','data':[{'class_type':1,'onoff':0,'use_time':90}],'appids':[]}"), 0);
    ASSERT_NE(record(tablet), nullptr);
    EXPECT_EQ(record(tablet)->utl[0].use_time, 90u);
    const std::string answer = json("{'err_no':'0','err_msg':'success','data':[{'class_type':1,'onoff':0,'use_time':90}]}");
    const std::string head = "0 " + std::to_string(answer.size()) + " ";
    EXPECT_EQ(ask(12, tablet.mac), head + answer);
    // The terminator and one character more stay free.
    EXPECT_EQ(ask(12, tablet.mac, 20), head + answer.substr(0, 18));
    EXPECT_EQ(ask(12, tablet.mac, 1), head);
    EXPECT_EQ(ask(12, tablet.mac, 0), head) << "asks for the length";

    EXPECT_EQ(set_limits("{'device':'x','data':[{}]}"), -1);
    EXPECT_EQ(set_limits(""), -1);
    for (const char *file : {"{'device':'@','data':{}}", "{'device':'x','data':[]}", "{'data':[]}"}) {
        store(json(file));
        EXPECT_EQ(ask(12, tablet.mac), "-1 4000 ");
    }
    for (const char *role : {"0", "2", "-1"}) {
        platform.device(tablet.mac).role = role;
        EXPECT_EQ(ask(12, tablet.mac), "-1 4000 ");
    }
}

TEST_F(requests, payment_switches)
{
    arrive(tablet)->device_state = device_active;
    platform.locked = {};
    auto file = [](const std::string &switches) { return json("{'device':'@','payment':{" + switches + "}}"); };
    appident_payment_notify_st some{"02-00-00-00-00-0A", 1, 0, 1, 0, 1};
    for (unsigned long ignored : {0ul, 4ul, 9ul})
        EXPECT_EQ(payments(13, ignored, some), 0);
    EXPECT_EQ(stored(), "");
    EXPECT_EQ(shown(), "-1");
    for (unsigned long action : {1ul, 2ul}) {
        platform.saved = 0;
        EXPECT_EQ(payments(13, action, some), 0);
        EXPECT_EQ(platform.saved, 1);
        EXPECT_EQ(stored(), file("'enable':1,'weixin':0,'alipay':1,'qqpay':0,'applepay':1"));
        EXPECT_EQ(shown(), "10101");
    }
    EXPECT_EQ(record(tablet)->payment_onoff, 1); // the second one found a file
    EXPECT_EQ(payments(13, 3, some), 0);
    EXPECT_EQ(stored(), file("'enable':0,'weixin':0,'alipay':0,'qqpay':0,'applepay':0"));
    EXPECT_EQ(record(tablet)->payment_onoff, 0);
    EXPECT_EQ(some.enable, 1u);
    {
        mutex_guard busy(device_apps_mtx);
        EXPECT_EQ(cgi_event_handler(14, &some, reinterpret_cast<void *>(1ul), nullptr), 0) << "reading waits for nobody";
        EXPECT_EQ(some.enable, 0u);
    }
    EXPECT_EQ(platform.locked, lines{}) << "no service was asked with the lock held";

    const std::pair<std::string, const char *> files[] = {
        {file("'enable':1,'weixin':1,'alipay':0,'qqpay':1"), "11011"}, // Apple Pay as QQ Pay
        {file("'enable':1,'weixin':0,'alipay':0,'applepay':1"), "-1"},
        {file("'enable':1,'weixin':'0','alipay':0,'qqpay':1"), "-1"},
        {json("{'device':'x','payment':{}}"), "-1"},
        {json("{'device':'@'}"), "11111"},
    };
    for (auto &[text, switches] : files) {
        store(text);
        EXPECT_EQ(shown(), switches) << text;
    }
    EXPECT_EQ(stored(), file("'enable':1,'weixin':1,'alipay':1,'qqpay':1,'applepay':1")); // so from now on
    appident_payment_notify_st endless{};
    memset(endless.mac, 'A', sizeof endless.mac);
    platform.device(std::string(19, 'A'));
    EXPECT_EQ(payments(13, 3, endless), 0);
    EXPECT_TRUE(std::filesystem::exists(config_file(std::string(19, 'A'))));
    EXPECT_EQ(payments(14, 2, some), -1);
    for (unsigned int id : {13, 14})
        EXPECT_EQ(cgi_event_handler(id, nullptr, reinterpret_cast<void *>(1ul), nullptr), -1);
}
