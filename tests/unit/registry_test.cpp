// Who is tracked: the start-up list, devices that come and go and lost roles.
#include "tests/kit/config_files.h"

#include "common/guards.h"

#include <tuple>

namespace {

const std::string online = "/app/devices/webs/getdeviceslist.cgi";
const std::string offline = "/app/devices/webs/get_offline_dev_list.cgi";

class registry : public household {
protected:
    static lines tracked()
    {
        lines macs;
        list_for_each(node, &device_apps_head)
            macs.push_back(device_of(node)->mac);
        return macs;
    }
};

} // namespace

TEST_F(registry, start_up)
{
    const std::string mac = "02-00-00-00-00-0";
    platform.devices = {{mac + "1", "2"}, {mac + "2", "0"}, {mac + "3", "-1"}, {mac + "4", "1", false}, {mac + "5-AND-MORE"}};
    EXPECT_EQ(app_ident_init(), 0);
    EXPECT_EQ(clock_now(), evening + 20);
    const nap worker = wait_for_worker_nap();
    EXPECT_TRUE(worker.seconds == 3 && !worker.lock_was_held);
    EXPECT_EQ(tracked(), (lines{mac + "1", mac + "5-A"}));
    lines log = logged();
    log.resize(2);
    EXPECT_EQ(log, (lines{"[appident] app_ident_init ->  start sleep 20S", "[appident] app_ident_init ->   sleep 20S over"}));
    EXPECT_EQ(asked().front(), online + "?noneed=noneed");
    EXPECT_EQ(device_of(device_apps_head.next)->role, 0) << "only decides whether a record is made";
}

TEST_F(registry, answers_for_one_device)
{
    // Two of one name are none, and one of another name is tracked under the MAC of the event.
    const std::string one = "{'mac':'02-00-00-00-00-0B','role':'3'}";
    platform.answers[online] = json("{'err_no':'0','data':[" + one + "," + one + "]}");
    EXPECT_EQ(arrive(phone), nullptr);
    platform.answers[online] = json("{'err_no':'0','data':[{'mac':'other','role':'3'}]}");
    arrive(phone);
    EXPECT_EQ(tracked(), (lines{phone.mac}));
}

TEST_F(registry, roles)
{
    platform.devices = {{"A", "5"}, {"B", "0"}, {"C", "-4"}, {"D", "0", false}, {"E", "7x", false}};
    const std::tuple<const char *, int, size_t> table[] = {{nullptr, -1, 0}, {"", -1, 0}, {"A", 5, 1}, {"B", 0, 1},
                                                           {"C", -4, 1},     {"E", 7, 2}, {"F", -3, 2}};
    for (const auto &[mac, role, questions] : table) {
        EXPECT_EQ(get_device_role(mac), role);
        EXPECT_EQ(asked().size(), questions) << "on line, then off line";
    }
    platform.failing = {online};
    EXPECT_EQ(get_device_role("D"), 0);
    platform.failing = {"call_cgi"};
    EXPECT_EQ(get_device_role("D"), -3);
    // Answers that count as none.
    platform.failing = {};
    know(tablet);
    for (const char *answer : {"", "[]", "{'data':[{'mac':'@','role':'1'}]}", "{'err_no':'1','data':[{'mac':'@','role':'1'}]}",
                               "{'err_no':0,'data':[{'mac':'@','role':'1'}]}", "{'err_no':'0','data':{'mac':'@','role':'1'}}",
                               "{'err_no':'0','data':[null]}", "{'err_no':'0','data':[{'mac':'@'}]}",
                               "{'err_no':'0','data':[{'mac':'@','role':1}]}"}) {
        platform.answers = {{online, json(answer)}, {offline, json(answer)}};
        init_device_app_list();
        feed_router(host_message(0, tablet.mac));
        EXPECT_EQ(tracked(), lines{}) << answer;
        EXPECT_EQ(get_device_role(tablet.mac), -3) << answer;
    }
}

TEST_F(registry, a_record_that_was_only_zeroed)
{
    know(tablet);
    auto *dev = static_cast<device_record *>(calloc(1, sizeof(device_record)));
    init_device_app(dev);
    strcpy(dev->mac, tablet.mac);
    list_add_tail(&dev->node, &device_apps_head);
    leave(tablet);
    EXPECT_TRUE(list_empty(&device_apps_head));
}
