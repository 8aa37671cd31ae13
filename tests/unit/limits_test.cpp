#include "tests/kit/config_files.h"

#include "common/guards.h"

#include <functional>

namespace {

// The limits of a record, one per slot in use: "CLASS:ONOFF:MINUTES:COUNTED[ids, + behind a checked one]".
std::string limits_of(const device_record &dev)
{
    std::string text = std::to_string(dev.utl_num);
    for (const use_time_limit &limit : dev.utl) {
        if (limit.class_type == 0)
            continue;
        text += " " + std::to_string(limit.class_type) + ":" + std::to_string(limit.onoff) + ":" +
                std::to_string(limit.use_time) + ":" + std::to_string(limit.app_id_num) + "[";
        for (const app_id_st &entry : limit.app_ids)
            text += entry.app_id != 0 ? std::to_string(entry.app_id) + (entry.checked ? "+ " : " ") : "";
        if (text.back() == ' ')
            text.pop_back();
        text += "]";
    }
    return text;
}

std::string alert(int code, const std::string &fields)
{
    return "push " + std::to_string(code) + " 0 " + json("{'endmac':'@','alias':'the @'," + fields + ",'folk_id':'40'}");
}

class limits_test : public household {
protected:
    limits_test() : dev(arrive(tablet))
    {
        dev->device_state = device_active;
        std::copy_n(mac_from_text(tablet.mac).begin(), 6, dev->mac_bytes);
    }

    void reload(const std::string &file, int result, const std::string &limits)
    {
        init_device_app(dev);
        dev->device_state = device_active;
        store(json(file));
        mutex_guard lock(device_apps_mtx);
        EXPECT_EQ(load_device_config(dev), result) << file;
        EXPECT_EQ(limits_of(*dev), limits) << file;
    }

    // One app of today: its state on the time axis, minutes of finished sessions, minutes of the running one.
    app_ident_record *use(u32 id, APP_STATE state, u32 sum, u32 period, int slot = 0)
    {
        app_ident_record &app = dev->apps[slot];
        app.app_id = id;
        app.time_axis_app_state = state;
        app.time_axis_sum_time = sum;
        app.time_axis_period_time = period;
        return &app;
    }

    void limit(int slot, u32 class_type, u32 minutes, u32 app)
    {
        dev->utl_num = std::max(dev->utl_num, static_cast<u32>(slot + 1));
        dev->utl[slot] = {class_type, 1, {{app, 1}}, minutes, 1, 0};
    }

    // What a look at the limits sends, which is no more than one alert: its code and fields, "" for none.
    void expect_alert(int code, const std::string &fields, u32 where = 0)
    {
        mutex_guard lock(device_apps_mtx);
        push_app_alert(dev);
        EXPECT_EQ(sent(), code == 0 ? lines{} : lines{alert(code, fields)}) << where;
    }
    void expect_none(u32 where = 0) { expect_alert(0, "", where); }

    device_record *dev;
};

} // namespace

TEST_F(limits_test, a_file_becomes_limits)
{
    const std::string known = "'appids':[{'class_type':'1','appid':[101,102]}]}", one = "{'device':'@','data':[";
    reload(one + "{'class_type':1,'onoff':1,'use_time':120,'appid':[102,103]}]," + known, 0, "1 1:1:120:2[102+ 103+]");
    EXPECT_EQ(app_in_limit_array(102, &dev->utl[0]), 1);
    EXPECT_EQ(app_in_limit_array(101, &dev->utl[0]), 0);
    // Without apps of its own a class keeps the catalogue's, none of them limited.
    reload(one + "{'class_type':1,'onoff':1,'use_time':5,'appid':[]}]," + known, 0, "1 1:1:5:0[101 102]");
    EXPECT_EQ(app_in_limit_array(101, &dev->utl[0]), 0);
    // Small classes of the catalogue, and some that it does not have.
    std::string groups;
    for (int small = -1; small <= 16; ++small)
        groups += "{'class_type':'" + std::to_string(small) + "','appid':[" + std::to_string(100 + small) + "]},";
    reload("{'device':'@','data':[],'appids':[" + groups + "{'class_type':1,'appid':[7]},{'appid':[8]},9,{'class_type':'1'}]}",
           0, "0 1:0:0:0[101] 2:0:0:0[103 104 105] 3:0:0:0[102 106 107 108 109 113 114] 4:0:0:0[110]");
    // Class 5 and unknown classes take the first slot that is free, 0 none; an id that is there twice counts twice.
    reload(one + "{'class_type':9},{'class_type':0,'use_time':3},{'class_type':5,'onoff':1,'appid':[4,4]}],'appids':[]}", 0,
           "3 9:0:0:0[] 5:1:0:2[4+]");
    reload(one + "{'class_type':5},{'class_type':1},{'class_type':9},{'class_type':2}]," + known, 0,
           "4 1:0:0:0[101 102] 5:0:0:0[] 9:0:0:0[] 2:0:0:0[]");
    // Five limits apply, six do not.
    std::string five = "{'class_type':5},{'class_type':4},{'class_type':3},{'class_type':2},{'class_type':1}";
    reload(one + five + "],'appids':[]}", 0, "5 5:0:0:0[] 4:0:0:0[] 3:0:0:0[] 2:0:0:0[] 1:0:0:0[]");
    reload(one + five + ",{}]," + known, 0, "0 1:0:0:0[101 102]");
    // 300 apps are cut at 256.
    std::string many = "1", kept = "1+";
    for (int id = 2; id <= 300; ++id) {
        many += "," + std::to_string(id);
        kept += id <= 256 ? " " + std::to_string(id) + "+" : "";
    }
    reload(one + "{'class_type':1,'appid':[" + many + "]}],'appids':[]}", 0, "1 1:0:0:256[" + kept + "]");
}

TEST_F(limits_test, odd_values_count_as_absent)
{
    reload("{'device':'@','data':[{'class_type':'1'},{'class_type':-1},{'class_type':1e300},[1]],'appids':[]}", 0, "4");
    reload(
        "{'device':'@','data':[{'class_type':2.5,'onoff':257,'use_time':4294967301,'appid':{'x':1}},{'class_type':1,'onoff':'1'"
        ","
        "'use_time':30.9,'appid':[0,-5,'7',[3],1e99,8,4294967295]}],'appids':[[],'x',{'class_type':'1','appid':['3',0,44]}]}",
        0, "2 1:0:30:7[8+ 4294967295+] 2:0:0:0[]");
    for (const char *file : {"", "no json", "[]", "{'device':5,'data':[],'appids':[]}", "{'device':'@','appids':[]}",
                             "{'device':'02-00-00-00-00-0a','data':[],'appids':[]}", "{'device':'@','data':{},'appids':[]}"})
        reload(file, -1, "0");
}

TEST_F(limits_test, a_file_without_catalogue_gains_one)
{
    const std::string file = "{'device':'@','data':[{'class_type':1}],'x':1";
    const std::string groups = "[{'class_type':'3','appid':[301]},{'class_type':'11'}]";
    for (const char *old : {"", ",'appids':{}"}) {
        platform.answers[catalogue_path] = json("{'err_no':'0','data':" + groups + "}");
        reload(file + old + "}", 0, "1 1:0:0:0[] 2:0:0:0[301]");
        EXPECT_EQ(stored(), json(file + ",'appids':" + groups + "}"));
    }
    for (const char *answer : {"", "x", "{'err_no':'1','data':[]}", "{'err_no':0,'data':[]}", "{'err_no':'0','data':{}}"}) {
        platform.answers[catalogue_path] = json(answer);
        reload(file + "}", -1, "0");
        EXPECT_EQ(stored(), json(file + "}"));
    }
}

TEST_F(limits_test, the_catalogue_grows)
{
    const std::string start = "{'device':'@','data':[{'class_type':1,'onoff':1,'use_time':60,'appid':[101]},{'class_type':2}],";
    reload(start + "'appids':[{'class_type':'1','appid':[101,103]},{'class_type':'10','appid':[]}],'payment':{}}", 0,
           "2 1:1:60:1[101+] 2:0:0:0[] 4:0:0:0[]");
    const std::string groups = "[{'class_type':'1','appid':[101,102,103,0,'5']},{'class_type':'11','appid':[900]},"
                               "{'class_type':'10','appid':[400]},{'class_type':'4','appid':[201,201]}]";
    platform.answers[catalogue_path] = json("{'err_no':'0','data':" + groups + "}");
    const int saved = platform.saved;
    for (int pass = 0; pass < 2; ++pass) {
        EXPECT_EQ(update_new_app_ids(dev), 0);
        EXPECT_EQ(limits_of(*dev), "2 1:1:60:2[101+ 102+] 2:0:0:1[201+] 4:0:0:0[]");
        EXPECT_EQ(stored(), json("{'device':'@','data':[{'class_type':1,'onoff':1,'use_time':60,'appid':[101,102]},"
                                 "{'class_type':2,'appid':[201]}],'payment':{},'appids':" +
                                 groups + "}"));
        EXPECT_EQ(platform.saved, saved + 1);
    }
    EXPECT_EQ(app_in_limit_array(102, &dev->utl[0]), 1);

    platform.answers[catalogue_path] = json("{'err_no':'3','data':[]}");
    EXPECT_EQ(update_new_app_ids(dev), 0);
    platform.failing = {catalogue_path};
    EXPECT_EQ(update_new_app_ids(dev), -1);
    store("{\"device\":\"other\"}");
    EXPECT_EQ(update_new_app_ids(dev), -1);
}

TEST_F(limits_test, summed_use_alerts_once_per_multiple)
{
    limit(0, 2, 60, 7);
    limit(1, 2, 60, 7);
    dev->utl[1].onoff = 0;
    // Minutes used so far, and what the alert says; 0 for none.
    const u32 steps[][2] = {{59, 0}, {60, 60}, {61, 0}, {119, 0}, {130, 120}, {179, 0}, {500, 480}, {100, 0}, {540, 540}};
    for (auto [minutes, told] : steps) {
        use(7, APP_UNUSED, minutes, 0);
        expect_alert(told != 0 ? 1015 : 0, "'class_type':'2','use_time':'" + std::to_string(told) + "'", minutes);
    }
    // What each state adds; an app that is not checked adds nothing.
    dev->utl[0] = {2, 2, {{7, 1}, {8, 0}}, 1, 1, 0};
    use(8, APP_UNUSED, 1000, 0, 1);
    for (auto [state, minutes] : {std::pair{APP_UNUSED, 40u}, {APP_HIT, 0}, {APP_USING, 49}, {APP_DISUSE, 0}}) {
        dev->utl[0].alert_push_num = 0;
        use(7, state, 40, 10);
        pre_push_app_alert(dev);
        EXPECT_EQ(dev->utl[0].alert_push_num, minutes) << state;
    }
    // A refused push is not repeated.
    platform.failing = {"new_push_msg"};
    use(7, APP_UNUSED, 60, 0);
    dev->utl[0].alert_push_num = 59;
    expect_alert(1015, "'class_type':'2','use_time':'60'");
    expect_none();
    dev->utl[0].use_time = 0;
    expect_none();
    EXPECT_EQ(push_addiction_alert(dev, 0, 0), -1);
    EXPECT_EQ(push_addiction_alert(dev, 0, 50), 0);
    for (int index : {-1, 5})
        EXPECT_EQ(push_addiction_alert(dev, index, 50), -1);
    for (u32 other_class : {0u, 4u, 5u}) {
        dev->utl[0].class_type = other_class;
        EXPECT_EQ(push_addiction_alert(dev, 0, 50), -1);
    }
}

TEST_F(limits_test, reloading_counts_what_was_told_already)
{
    const std::string file = "{'device':'@','data':[{'class_type':3,'onoff':1,'use_time':60,'appid':[7]}],'appids':[]}";
    reload(file, 0, "1 3:1:60:1[7+]");
    use(7, APP_USING, 100, 51);
    store(json(file));
    load_device_config(dev); // 2.5 limits
    expect_none();
    use(7, APP_USING, 129, 51);
    expect_none();
    use(7, APP_USING, 130, 51);
    expect_alert(1015, "'class_type':'3','use_time':'180'");
    for (const char *role : {"-1", "0", "2", "1"}) {
        platform.device(tablet.mac).role = role;
        dev->utl[0].onoff = role != std::string("1");
        dev->utl[0].alert_push_num = 0;
        pre_push_app_alert(dev);
        expect_none();
        EXPECT_EQ(dev->utl[0].alert_push_num, 0u) << role;
    }
}

TEST_F(limits_test, eyes_rest_once_per_period_of_a_session)
{
    limit(0, 5, 30, 0); // of any app
    const u32 steps[][2] = {{30, 0}, {31, 1800}, {60, 0}, {61, 3600}, {200, 10800}, {201, 0}};
    for (auto [period, told] : steps) {
        use(7, APP_USING, 500, period);
        expect_alert(told != 0 ? 1021 : 0, "'role':'1','appid':'7','times':'" + std::to_string(told) + "'", period);
    }
    for (u32 id : {300, 301, 302, 310, 311, 313}) {
        use(id, APP_USING, 0, 400);
        expect_none(id);
    }
    EXPECT_EQ(push_eye_protection_alert(dev, 0, use(7, APP_DISUSE, 0, 400)), -1);
    EXPECT_EQ(push_eye_protection_alert(dev, -1, use(7, APP_USING, 0, 400)), -1);
    dev->utl[0].onoff = 0;
    EXPECT_EQ(push_eye_protection_alert(dev, 0, &dev->apps[0]), -1);
}

TEST_F(limits_test, a_push_that_cannot_be_made_asks_for_no_name)
{
    limit(0, 5, 30, 8);
    app_ident_record *app = use(8, APP_USING, 0, 31);
    platform.named = 0;
    cJSON_Hooks none = {[](size_t) -> void * { return nullptr; }, free};
    cJSON_InitHooks(&none);
    EXPECT_EQ(push_eye_protection_alert(dev, 0, app), 0);
    cJSON_InitHooks(nullptr);
    EXPECT_EQ(platform.named, 0);
    EXPECT_EQ(sent(), lines{});
}

TEST_F(limits_test, the_daydayup_alert_and_why_not)
{
    limit(0, 2, 60, 7);
    limit(1, 4, 0, 7);
    limit(2, 4, 0, 8); // the first of its class counts
    app_ident_record *app = use(7, APP_USING, 0, 2);
    auto answer = [&] { return push_daydayup_alert(dev, app); };
    const u32 now = static_cast<u32>(clock_now());

    EXPECT_EQ(push_daydayup_alert(nullptr, app), -1);
    EXPECT_EQ(push_daydayup_alert(dev, nullptr), -1);
    const std::pair<int, std::function<void()>> spoilt[] = {{-10, [&] { app->end_time = now - 3599; }},
                                                            {-9, [&] { app->time_axis_period_time = 1; }},
                                                            {-8, [&] { app->daydayup_alert_push_num = 1; }},
                                                            {-7, [&] { app->app_id = 8; }},
                                                            {-6, [&] { dev->utl[1].onoff = 0; }},
                                                            {-5, [&] { dev->utl_num = 1; }},
                                                            {-4, [&] { platform.device(tablet.mac).role = "2"; }}};
    for (auto &[reason, spoil] : spoilt) { // each on top of the others
        spoil();
        EXPECT_EQ(answer(), reason);
    }
    for (auto [id, reason] : {std::pair{300u, -2}, {301, -2}, {302, -2}, {310, -3}, {311, -3}, {313, -3}, {303, -4}}) {
        app->app_id = id;
        EXPECT_EQ(answer(), reason) << id;
    }
    EXPECT_EQ(sent(), lines{});

    platform.device(tablet.mac).role = "1";
    dev->utl_num = 2;
    dev->utl[1].onoff = 1;
    for (u32 stopped : {u32{0}, now - 3600, now + 1}) { // the last: the clock went back
        app = use(7, APP_USING, 0, 2);
        app->end_time = stopped;
        app->daydayup_alert_push_num = 0;
        mutex_guard lock(device_apps_mtx);
        EXPECT_EQ(answer(), 0);
        EXPECT_EQ(sent(), lines{alert(1022, "'role':'1','appid':'7'")});
        EXPECT_EQ(answer(), -8);
    }
}
