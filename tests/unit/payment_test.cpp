#include "appident/settings/config_file.h"
#include "tests/kit/config_files.h"

#include "common/guards.h"

#include <arpa/inet.h>

constexpr u32 major(u32 hits, u32 id)
{
    return 1u << 24 | hits << 16 | id;
}

class payment_test : public household {
protected:
    payment_test() : dev(arrive(tablet)) { store(json("{'device':'@','data':[{}],'appids':[]}")); }

    // What the router's kernel tells of a payment app; the first one loads the device's settings: everything on.
    void rule(u32 id, u32 app = ALI_PAY, int action = 0)
    {
        feed_router(app_message(action, app_word(app), id, tablet.mac, inet_addr(tablet.ip)));
    }
    std::vector<u32> kept(u32 app = ALI_PAY)
    {
        std::vector<u32> rules;
        list_for_each(node, &dev->pay_sets[app - WECHAT_PAY].pay_rule_list_head)
            rules.push_back(list_entry(node, pay_rule_record, node)->rule_id);
        return rules;
    }
    lines alerts(u32 wait = 0)
    {
        set_clock(clock_now() + wait);
        mutex_guard lock(device_apps_mtx);
        push_app_alert(dev);
        return sent();
    }
    static lines alert(int code, const std::string &rules, long long at)
    {
        return {json("push 1012 0 {'endmac':'@','alias':'the @','role':'1','paytype':'" + std::to_string(code) +
                     "','ruleid':'" + rules + "','timestamp':'" + std::to_string(at) + "','folk_id':'40'}")};
    }

    device_record *dev;
};

TEST_F(payment_test, which_rules_make_a_payment)
{
    const struct {
        std::vector<u32> rules;
        bool paid;
    } table[] = {
        {{major(1, 5)}, true},
        {{major(1, 5), 17}, true},
        {{17, major(1, 5)}, true}, // oldest first in the alert
        {{major(0, 5), 17}, false},
        {{major(0, 5), major(1, 5)}, true}, // the first number that is named counts
        {{major(2, 5)}, false},
        {{major(2, 5), major(2, 6)}, false},
        {{major(2, 5), 17}, true},
        {{major(3, 5), 17, 18}, true},
        {{major(2, 5), major(255, 6), 17}, true},
        {{major(255, 6), major(2, 5), 17}, false},
    };
    for (auto &[rules, paid] : table) {
        std::string text;
        for (u32 id : rules) {
            rule(id);
            text += (text.empty() ? "" : ",") + std::to_string(id);
        }
        EXPECT_EQ(alerts(), paid ? alert(1, text, clock_now()) : lines{}) << text;
        EXPECT_EQ(kept().empty(), paid) << text; // consumed, or waiting
        alerts(31);
        EXPECT_EQ(kept(), std::vector<u32>{}) << text;
    }
    // A text of rules ends at the last that fits; counting goes on.
    std::string text;
    for (u32 id = 4026531840; id < 4026531989; ++id) {
        rule(id);
        text += text.size() + 12 <= 1024 ? std::to_string(id) + "," : "";
    }
    rule(major(150, 0));
    EXPECT_EQ(alerts(), alert(1, text.substr(0, text.size() - 1), clock_now()));
}

TEST_F(payment_test, windows)
{
    // A rule waits 30 seconds for its companions, anew with each hit.
    rule(major(2, 5));
    alerts(30);
    EXPECT_EQ(kept().size(), 1u);
    rule(major(2, 5));
    alerts(30);
    rule(17);
    EXPECT_EQ(alerts().size(), 1u);
    rule(17);
    alerts(31);
    EXPECT_EQ(kept().size(), 0u);
    // For 20 seconds after an alert payments of that type are swallowed.
    for (auto [wait, told] : {std::pair{21u, 1u}, {20u, 0u}, {1u, 1u}, {0u, 0u}}) {
        set_clock(clock_now() + wait);
        rule(major(1, 5));
        EXPECT_EQ(alerts().size(), told) << wait;
        EXPECT_EQ(kept().size(), 0u);
    }
    rule(major(1, 5), QQ_PAY);
    EXPECT_EQ(alerts(), alert(3, std::to_string(major(1, 5)), clock_now()));
    // A refused push is as good as sent.
    platform.failing = {"new_push_msg"};
    for (size_t told : {1u, 0u}) {
        set_clock(clock_now() + 21 * told);
        rule(major(1, 5));
        EXPECT_EQ(alerts().size(), told);
    }
}

TEST_F(payment_test, two_step_purchases_record_nothing)
{
    rule(17);
    for (auto [wait, recorded] : {std::pair{5, 1}, {6, 0}}) {
        logged();
        hit(APPLE_PAY, more, {1, 1, 303001});
        set_clock(clock_now() + wait);
        hit(APPLE_PAY, more, {1, 1, 303002});
        hit(APPLE_PAY, more, {1, 1, 303002}); // no first step is pending any more
        lines log = logged();
        EXPECT_EQ(std::count(log.begin(), log.end(), json("[appident] [@] add_app_payment_record -> ok")), recorded);
        weChat_red_pay(dev, app_word(WECHAT_PAY), 304001);
        set_clock(clock_now() + wait);
        weChat_red_pay(dev, app_word(WECHAT_PAY), 304002);
        EXPECT_EQ(logged().size(), static_cast<size_t>(1 + recorded));
        EXPECT_EQ(kept(APPLE_PAY).size() + kept(WECHAT_PAY).size(), 1u);
    }
}

TEST_F(payment_test, a_device_back_on_line_loads_its_settings_again)
{
    rule(17);
    dev->device_state = device_offline;
    rule(18);
    EXPECT_EQ(kept(), std::vector<u32>{18}) << "what was pending is dropped";
    rule(major(1, 5));
    EXPECT_EQ(alerts().size(), 1u);
    dev->device_state = device_offline;
    rule(major(1, 5));
    EXPECT_EQ(alerts().size(), 1u) << "the last alert is forgotten";
    for (u32 limits : {0u, 2u}) {
        dev->utl_num = limits;
        dev->device_state = device_offline;
        rule(18);
        EXPECT_EQ(dev->utl_num, limits == 0 ? 1u : 2u) << "limits are loaded only when there are none";
    }
}

TEST_F(payment_test, who_is_watched)
{
    rule(18);
    dev->payment_onoff = 0;
    rule(19);
    EXPECT_EQ(kept().size(), 1u);
    dev->payment_onoff = 1;
    for (uint8_t off : {uint8_t{0}, uint8_t{2}}) { // only 1 is on
        dev->pay_sets[1].onoff = off;
        rule(major(1, 5));
        EXPECT_EQ(alerts(31), lines{});
        EXPECT_EQ(kept().size(), 1u) << "not even aged";
    }
    dev->pay_sets[1].onoff = 1;
    dev->utl_num = 0;
    rule(major(1, 5));
    EXPECT_EQ(alerts(), lines{}) << "without limits nothing is looked at";
    dev->utl_num = 2;
    for (auto [role, told] : {std::pair{"0", 0u}, {"-1", 0u}, {"2", 1u}}) {
        platform.device(tablet.mac).role = role;
        rule(major(1, 5));
        EXPECT_EQ(alerts().size(), told);
    }
}

namespace {

// The switches of a record: enable, then the four types.
std::string switches_of(const device_record &dev)
{
    std::string text = std::to_string(dev.payment_onoff);
    for (const payment_set &set : dev.pay_sets)
        text += " " + std::to_string(set.onoff);
    return text;
}

} // namespace

TEST_F(payment_test, switches_are_read)
{
    const std::string all = "'payment':{'enable':1,'weixin':1,'alipay':1,'qqpay':1,'applepay':1}}", on = "1 1 1 1 1";
    const struct {
        const char *file;
        int result;
        std::string switches, after; // "": unchanged
    } loads[] = {
        {"", -1, on, "{'device':'@'," + all},
        {"no json", -1, on, ""},
        {"{'device':'@','payment':7,'x':1}", 0, on, "{'device':'@','x':1," + all},
        {"{'device':'x','payment':{'enable':1}}", -1, "0 0 0 0 0", ""},
        {"{'device':'@','payment':{'enable':1,'weixin':0,'alipay':1,'qqpay':0,'applepay':0}}", 0, "1 0 1 0 1", ""},
        {"{'device':'@','payment':{'enable':'1','weixin':256,'alipay':-1,'qqpay':2}}", 0, "0 0 0 2 1", ""},
    };
    for (auto &load : loads) {
        std::filesystem::remove(config_file());
        if (load.file[0] != '\0')
            store(json(load.file));
        leave(tablet);
        dev = arrive(tablet);
        mutex_guard lock(device_apps_mtx);
        EXPECT_EQ(load_device_pay_config(dev), load.result) << load.file;
        EXPECT_EQ(switches_of(*dev), load.switches) << load.file;
        EXPECT_EQ(stored(), json(load.after.empty() ? load.file : load.after));
    }
}

TEST_F(payment_test, switches_are_stored)
{
    store(json("{'device':'@','payment':{'qqpay':'1','weixin':1,'alipay':9},'data':[]}"));
    dev->device_state = device_active;
    EXPECT_EQ(save_device_pay_config(tablet.mac, 1, 0, 1, 0, 1), 0);
    EXPECT_EQ(stored(), json("{'device':'@','payment':{'weixin':0,'alipay':1,'enable':1,'qqpay':0,'applepay':1},'data':[]}"));
    EXPECT_EQ(switches_of(*dev), "1 0 1 0 1");
    // A device that is only listed keeps its record; one of role 0 gets no file.
    dev->device_state = device_listed;
    EXPECT_EQ(save_device_pay_config(tablet.mac, 0, 0, 0, 0, 0), 0);
    EXPECT_EQ(dev->payment_onoff, 1);
    std::filesystem::remove(config_file());
    for (const char *role : {"0", "-1"}) {
        platform.device(tablet.mac).role = role;
        EXPECT_EQ(load_device_pay_config(dev), -1);
        EXPECT_EQ(dev->payment_onoff + dev->pay_sets[1].onoff, 2) << "as it was";
        EXPECT_EQ(stored(), "");
    }
    platform.device(tablet.mac).role = "0";
    EXPECT_EQ(save_device_pay_config(tablet.mac, 1, 1, 1, 1, 1), 0);
    EXPECT_EQ(stored(), "");
}
