#include "fuzz/targets.h"

#include "common/guards.h"
#include "common/log.h"
#include "tests/kit/config_files.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {

const std::string limits = json("{'device':'@','data':[{'class_type':1,'onoff':1,'use_time':60,'appid':[7,9]},{'class_type':5,"
                                "'onoff':1,'use_time':1,'appid':[8]}],'appids':[{'class_type':'1','appid':[7]}],"
                                "'payment':{'enable':1,'weixin':1,'alipay':0,'qqpay':1,'applepay':1}}");
const std::string catalogue =
    json("{'err_no':'0','data':[{'class_type':'1','appid':[7,9,11]},{'class_type':'14','appid':[20]}]}");

void must(bool holds)
{
    if (!holds)
        abort();
}

// One household for the whole run, with a device in use at the start of each input.
struct home : household {
    home()
    {
        url_check_cleanup();
        log_fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    }
    void TestBody() override {}

    void begin()
    {
        std::filesystem::remove(config_file());
        platform.answers.clear();
        platform.answers[catalogue_path] = catalogue;
        set_clock(evening);
        arrive(tablet);
        feed_traffic(accounting_message(app_word(7), 1 | start, tablet.ip, 1, 2));
    }
    // Whatever came in, the household goes on: an hour's end for all that is open.
    void end()
    {
        must(!lock_is_held());
        set_clock(evening + 3600);
        ticking = {evening, evening, true};
        tick();
        must(!lock_is_held());
        list_for_each_safe(node, next, &device_apps_head) {
            must(node->next->prev == node && node->prev->next == node);
            list_del(node);
            free_device_record(device_of(node));
        }
        forget();
        platform.saved = 0;
    }
    using household::feed_router;
    using household::feed_traffic;
    using household::record;
};

home &the_home()
{
    static home household;
    return household;
}

template <typename body> void at_home(body visit)
{
    the_home().begin();
    visit(the_home());
    the_home().end();
}

// As it came, and once more with a header that opens the door to the attributes.
void take_accounting(const std::string &bytes)
{
    at_home([&](home &household) {
        household.feed_traffic(bytes);
        std::string framed = bytes;
        if (framed.size() < NLMSG_HDRLEN)
            return;
        nlmsghdr header{};
        header.nlmsg_len = static_cast<u32>(framed.size());
        header.nlmsg_type = 0x10B;
        household.feed_traffic(framed.replace(0, NLMSG_HDRLEN, bytes_of(header)));
    });
}

std::vector<std::string> accounting_seeds()
{
    std::vector<std::string> seeds;
    for (u32 app : {0u, 7u, 8u, 300u, 303u})
        seeds.push_back(accounting_message(app_word(app, 1), 7 | start, tablet.ip, 100, 1000));
    seeds.push_back(accounting_message(app_word(7), 7, tablet.ip, 100, 1000));
    seeds.push_back(accounting_message(app_word(9, 0, 2), 7, "10.0.0.1", 100, 1000));
    return seeds;
}

void take_router(const std::string &bytes)
{
    at_home([&](home &household) { household.feed_router(bytes); });
}

std::vector<std::string> router_seeds()
{
    std::vector<std::string> seeds;
    for (int action : {0, 1, 2}) {
        seeds.push_back(host_message(action, tablet.mac));
        seeds.push_back(host_message(action, phone.mac));
        seeds.push_back(app_message(action, app_word(301), 0x30007, tablet.mac, inet_addr(tablet.ip)));
    }
    return seeds;
}

// The id, two bytes of capacity, the MAC's terminated text, and what the buffer holds; each in a block of its own size.
void take_request(const std::string &bytes)
{
    if (bytes.size() < 4)
        return;
    auto id = static_cast<unsigned char>(bytes[0]) % 17u;
    auto capacity = static_cast<unsigned int>(static_cast<unsigned char>(bytes[1]) | static_cast<unsigned char>(bytes[2]) << 8);
    std::string mac = bytes.c_str() + 3;
    std::string text = bytes.substr(std::min(bytes.size(), 4 + mac.size()));
    capacity = std::max(capacity, id == 12 ? 2u : 0u);
    bool is_switches = id == 13 || id == 14;
    size_t room = is_switches ? sizeof(appident_payment_notify_st) : std::max<size_t>(capacity, text.size() + 1);
    heap_text buffer(static_cast<char *>(calloc(1, room)));
    memcpy(buffer.get(), text.data(), std::min(room, text.size()));
    at_home([&](home &) {
        store(limits);
        void *second = is_switches ? reinterpret_cast<void *>(uintptr_t{capacity % 5}) : mac.data();
        cgi_event_handler(id, buffer.get(), second, &capacity);
    });
}

std::vector<std::string> request_seeds()
{
    std::vector<std::string> seeds;
    const std::string room("\x00\x04", 2), end(1, '\0');
    for (char id = 5; id < 16; id++) {
        seeds.push_back(id + room + tablet.mac + end + limits);
        seeds.push_back(id + room + json("{'device':['@','02-00-00-00-00-0B',1]}") + end);
    }
    for (char id : {'\x0D', '\x0E'})
        seeds.push_back(id + std::string("\1\0x\0", 4) + tablet.mac + std::string(23, '\1'));
    return seeds;
}

// Every reader and every writer of the file.
void take_config(const std::string &bytes)
{
    at_home([&](home &household) {
        for (const std::string &merged : {limits, bytes}) {
            store(bytes);
            load_device_config(household.record(tablet));
            load_device_pay_config(household.record(tablet));
            update_new_app_ids(household.record(tablet));
            save_config(tablet.mac, merged.c_str());
            save_device_pay_config(tablet.mac, 1, 0, 1, 0, 1);
        }
    });
}

void take_catalogue(const std::string &bytes)
{
    at_home([&](home &household) {
        platform.answers[catalogue_path] = bytes;
        for (const std::string &file : {limits, json("{'device':'@','data':[{'class_type':2,'onoff':1,'appid':[3]}]}")}) {
            store(file);
            load_device_config(household.record(tablet));
            update_new_app_ids(household.record(tablet));
        }
    });
}

void take_device_service(const std::string &bytes)
{
    at_home([&](home &household) {
        platform.answers[online_devices_path] = platform.answers[offline_devices_path] = bytes;
        household.feed_router(host_message(0, phone.mac));
        init_device_app_list();
        get_device_role(laptop.mac);
        add_device_record_to_tail(laptop.mac);
    });
}

// Files and service answers.
template <size_t which> std::vector<std::string> text_seeds()
{
    const std::vector<std::string> texts[] = {
        {limits, "{'device':'@','data':[]}", "{'device':'@','payment':{'qqpay':0}}"},
        {catalogue, "{'err_no':'1'}", "{'err_no':'0','data':[{'class_type':'3','appid':[]},{}]}"},
        {"{'err_no':'0','data':[{'mac':'@','role':'1'}]}", "{'err_no':'0','data':[]}",
         "{'err_no':'0','data':[{'mac':'@','role':'0'},{'mac':'02-00-00-00-00-0C','role':'2'}]}"}};
    std::vector<std::string> seeds;
    for (const std::string &text : texts[which])
        seeds.push_back(json(text));
    return seeds;
}

} // namespace

const std::vector<fuzz_target> fuzz_targets = {
    {"accounting", take_accounting, accounting_seeds}, {"router", take_router, router_seeds},
    {"request", take_request, request_seeds},          {"config", take_config, text_seeds<0>},
    {"catalogue", take_catalogue, text_seeds<1>},      {"device_service", take_device_service, text_seeds<2>},
};
