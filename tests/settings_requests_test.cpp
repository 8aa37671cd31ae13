// Requests 11 to 14, as the web interface sends them, and what they may meet on the way.
#include "tests/support/config_files.h"

class settings_requests : public household {
protected:
    static int ask(unsigned int id, void *pa, void *pb, void *pc)
    {
        int result = cgi_event_handler(id, pa, pb, pc);
        EXPECT_FALSE(lock_is_held()) << id;
        return result;
    }
    static int set_limits(const std::string &text)
    {
        std::string buffer = json(text), mac = tablet.mac;
        unsigned int length = static_cast<unsigned int>(buffer.size());
        return ask(11, buffer.data(), mac.data(), &length);
    }
    // "RESULT LENGTH TEXT"
    static std::string limits(unsigned int capacity = 4000)
    {
        std::string buffer(capacity, '#'), mac = tablet.mac;
        int result = ask(12, buffer.data(), mac.data(), &capacity);
        return std::to_string(result) + " " + std::to_string(capacity) + " " +
               buffer.substr(0, buffer.find_first_of(std::string("#\0", 2)));
    }
    static int payments(unsigned int id, unsigned long number, appident_payment_notify_st &switches)
    {
        return ask(id, &switches, reinterpret_cast<void *>(number), nullptr);
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

const std::string first = "{'device':'@','data':[{'class_type':1,'onoff':1,'use_time':60,'appid':[7]}],'appids':[]}";

TEST_F(settings_requests, limits_are_stored_applied_and_shown)
{
    know(tablet);
    EXPECT_EQ(limits(), "0 0 ");
    EXPECT_EQ(set_limits(first), 0);
    ASSERT_NE(record(tablet), nullptr);
    EXPECT_EQ(record(tablet)->utl[0].use_time, 60u);
    EXPECT_EQ(set_limits("{'device':'@','data':[{'class_type':1,'onoff':0,'use_time':90}]}"), 0);
    EXPECT_EQ(record(tablet)->utl[0].use_time, 90u);
    const std::string answer = json("{'err_no':'0','err_msg':'success','data':[{'class_type':1,'onoff':0,'use_time':90}]}");
    const std::string head = "0 " + std::to_string(answer.size()) + " ";
    EXPECT_EQ(limits(), head + answer);
    // The terminator and one character more stay free.
    EXPECT_EQ(limits(20), head + answer.substr(0, 18));
    EXPECT_EQ(limits(1), head);
    EXPECT_EQ(limits(0), "-1 0 ");

    EXPECT_EQ(set_limits("{'device':'x','data':[{}]}"), -1);
    EXPECT_EQ(set_limits(""), -1);
    for (const char *file : {"{'device':'@','data':{}}", "{'device':'x','data':[]}", "{'data':[]}"}) {
        store(json(file));
        EXPECT_EQ(limits(), "-1 4000 ");
    }
    for (const char *role : {"0", "2", "-1"}) {
        platform.device(tablet.mac).role = role;
        EXPECT_EQ(limits(), "-1 4000 ");
    }
    unsigned int length = 9;
    char text[9] = "";
    for (unsigned int id : {11, 12})
        for (int missing : {0, 1, 2})
            EXPECT_EQ(ask(id, missing == 0 ? nullptr : text, missing == 1 ? nullptr : text, missing == 2 ? nullptr : &length),
                      -1);
}

TEST_F(settings_requests, a_device_of_role_0_is_let_go)
{
    arrive(tablet)->device_state = device_active;
    store(json(first));
    platform.device(tablet.mac).role = "0";
    EXPECT_EQ(set_limits(first), 0);
    EXPECT_EQ(record(tablet), nullptr);
    EXPECT_EQ(stored(), "");
    EXPECT_EQ(logged().back(), json("[main] @ set_device_app_list_use_time -> rolo=0   del_role_protect over  "));
    EXPECT_EQ(payments(13, 1, on), 0);
    EXPECT_EQ(stored(), "");
}

TEST_F(settings_requests, payment_switches)
{
    arrive(tablet)->device_state = device_active;
    auto file = [](const std::string &switches) { return json("{'device':'@','payment':{" + switches + "}}"); };
    appident_payment_notify_st some{"02-00-00-00-00-0A", 1, 0, 1, 0, 1};
    for (unsigned long ignored : {0ul, 4ul, 9ul})
        EXPECT_EQ(payments(13, ignored, some), 0);
    EXPECT_EQ(stored(), "");
    EXPECT_EQ(shown(), "-1");
    for (unsigned long action : {1ul, 2ul}) {
        EXPECT_EQ(payments(13, action, some), 0);
        EXPECT_EQ(stored(), file("'enable':1,'weixin':0,'alipay':1,'qqpay':0,'applepay':1"));
        EXPECT_EQ(shown(), "10101");
    }
    EXPECT_EQ(record(tablet)->payment_onoff, 1); // the second one found a file
    EXPECT_EQ(payments(13, 3, some), 0);
    EXPECT_EQ(stored(), file("'enable':0,'weixin':0,'alipay':0,'qqpay':0,'applepay':0"));
    EXPECT_EQ(record(tablet)->payment_onoff, 0);
    EXPECT_EQ(some.enable, 1u);

    const std::pair<std::string, const char *> files[] = {
        {file("'enable':1,'weixin':1,'alipay':1,'qqpay':0"), "11100"}, // Apple Pay as QQ Pay
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
        EXPECT_EQ(ask(id, nullptr, reinterpret_cast<void *>(1ul), nullptr), -1);
}
