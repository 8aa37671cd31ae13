// The device list with its index, an app's place in its device's table, and the rules of a session: what the hot path trusts.
#include "appident/model/app_slots.h"
#include "appident/model/device_list.h"
#include "common/mac_text.h"
#include "tests/kit/household.h"

#include <set>

class model : public household {
protected:
    static device_record *linked(const lan_device &device, list_head *before = &device_apps_head)
    {
        device_record *dev = allocate_device_record(device.mac);
        list_add_tail(&dev->node, before);
        return dev;
    }
    static void unlinked_and_freed(device_record *dev)
    {
        list_del(&dev->node);
        free_device_record(dev);
    }
    // Whose record a starting hit of the tablet reaches, null for nobody's.
    device_record *reached_by(u32 app)
    {
        hit(app, start);
        device_record *reached = nullptr;
        list_for_each(node, &device_apps_head) {
            for (const app_ident_record &one : device_of(node)->apps)
                if (one.app_id == app)
                    reached = device_of(node);
        }
        return reached;
    }
    std::vector<device_record *> many(u32 count)
    {
        std::vector<device_record *> made;
        for (u32 i = 0; i < count; ++i) {
            const unsigned char mac[6] = {4, 0, 0, 0, static_cast<unsigned char>(i >> 8), static_cast<unsigned char>(i)};
            char text[mac_text_size];
            write_mac_text(mac, text);
            made.push_back(allocate_device_record(text));
            link_device(made.back());
        }
        return made;
    }
};

TEST_F(model, records_that_others_link_and_remove)
{
    know(tablet);
    device_record *first = linked(phone), *last = linked(laptop);
    EXPECT_EQ(reached_by(1), nullptr);
    // At the end of the list it is noticed at once; elsewhere with the next pass.
    device_record *dev = linked(tablet);
    EXPECT_EQ(reached_by(2), dev);
    unlinked_and_freed(dev);
    EXPECT_EQ(reached_by(3), nullptr);
    dev = linked(tablet, &last->node);
    EXPECT_EQ(reached_by(4), nullptr) << "a moment before it was not there";
    tick();
    EXPECT_EQ(reached_by(5), dev);
    unlinked_and_freed(dev);
    EXPECT_EQ(reached_by(6), nullptr) << "and nothing of it is read";
    dev = linked(tablet, &first->node);
    EXPECT_EQ(reached_by(7), dev);
    list_del(&dev->node);
    EXPECT_EQ(reached_by(8), nullptr);
    list_add_tail(&dev->node, &last->node);
    tick();
    EXPECT_EQ(reached_by(9), dev);
    // Own operations are noticed without a pass.
    remove_device(dev);
    EXPECT_EQ(reached_by(10), nullptr);
    dev = allocate_device_record(tablet.mac);
    link_device(dev);
    EXPECT_EQ(reached_by(11), dev);
}

TEST_F(model, records_that_others_rename)
{
    know(tablet);
    device_record *dev = linked(phone), *other = linked(laptop);
    strcpy(dev->mac, tablet.mac);
    EXPECT_EQ(reached_by(1), dev);
    strcpy(dev->mac, "another");
    EXPECT_EQ(reached_by(2), nullptr);
    EXPECT_EQ(tracked_device("another"), dev) << "a text that is no MAC";
    strcpy(other->mac, tablet.mac);
    tick();
    EXPECT_EQ(reached_by(3), other);
}

TEST_F(model, one_mac_twice)
{
    know(tablet);
    device_record *first = allocate_device_record(tablet.mac), *second = allocate_device_record(tablet.mac);
    link_device(first);
    link_device(second);
    EXPECT_EQ(reached_by(1), first);
    EXPECT_EQ(next_of_same_mac(first), second);
    EXPECT_EQ(next_of_same_mac(second), nullptr);
    remove_device(first);
    EXPECT_EQ(reached_by(2), second);
    first = linked(tablet);
    leave(tablet);
    EXPECT_EQ(device_of(device_apps_head.next), first) << "an active record ends the search";
    leave(tablet);
    EXPECT_TRUE(list_empty(&device_apps_head));
}

TEST_F(model, more_devices_than_the_index_holds)
{
    constexpr u32 count = most_indexed_devices + 40;
    std::vector<device_record *> made = many(count);
    for (device_record *dev : made)
        EXPECT_EQ(tracked_device(dev->mac), dev);
    EXPECT_EQ(device_number(made.back()), -1);
    for (u32 i = 0; i < count; i += 2)
        remove_device(made[i]);
    std::set<int> numbers;
    for (u32 i = 1; i < count; i += 2) {
        EXPECT_EQ(tracked_device(made[i]->mac), made[i]);
        numbers.insert(device_number(made[i]));
    }
    EXPECT_EQ(numbers.size(), count / 2) << "a number for each";
    EXPECT_EQ(numbers.count(-1), 0u);
}

// Ids that stand at the same place of the table of guesses, and slots whose apps changed.
TEST_F(model, apps_of_one_hash)
{
    arrive(tablet);
    device_record *dev = record(tablet);
    tracked_device(tablet.mac);
    for (int round = 0; round < 3; ++round) {
        for (u32 i = 0; i < 9; ++i)
            dev->apps[(i + static_cast<u32>(round)) % 9].app_id = (i + 1) << 8 | ((i + 1) ^ 77);
        for (u32 i = 0; i < 36; ++i) {
            u32 app = (i % 9 + 1) << 8 | ((i % 9 + 1) ^ 77);
            int none;
            EXPECT_EQ(find_app_slot(dev, app, &none), static_cast<int>((i + static_cast<u32>(round)) % 9));
        }
    }
}

TEST_F(model, a_session_keeps_a_thousand_rules)
{
    arrive(tablet);
    hit(5, start, {1, 1, 7});
    app_data ad{};
    u32 kept = 1;
    for (u32 rule = 100; rule < 1200; ++rule) {
        ad.ruleid = rule;
        add_rule_record(app(5), &ad);
    }
    list_for_each(node, &app(5)->rule_list_head)
        kept = list_entry(node, rule_record, node)->rule_id;
    EXPECT_EQ(kept, 100u + 1022) << "the mark's, and 1,023 behind it";
    clear_rule_list(&app(5)->rule_list_head);
    add_rule_record(app(5), &ad);
    EXPECT_FALSE(list_empty(&app(5)->rule_list_head));
}

TEST_F(model, addresses_of_hits)
{
    arrive(tablet);
    app_data ad{};
    ad.ruleid = start;
    u32 app_id = 0;
    // What inet_aton reads differently from four plain numbers is asked for as it reads it, and what it does not read as 0.
    for (const auto &[text, asked] :
         std::initializer_list<std::pair<const char *, const char *>>{{"192.168.1.9", "192.168.1.9"},
                                                                      {"255.255.255.255", "255.255.255.255"},
                                                                      {"0.0.0.0", "0.0.0.0"},
                                                                      {"010.1.1.1", "8.1.1.1"},
                                                                      {"1.2.3", "1.2.0.3"},
                                                                      {"0x7f.1", "127.0.0.1"},
                                                                      {"1.2.3.256", "0.0.0.0"},
                                                                      {"1.2.3.4.", "0.0.0.0"},
                                                                      {"", "0.0.0.0"},
                                                                      {"none", "0.0.0.0"},
                                                                      {"1.2..4", "0.0.0.0"}}) {
        platform.neighbours = {{asked, tablet.mac}};
        snprintf(ad.req_src_ip, sizeof ad.req_src_ip, "%s", text);
        ad.appid = app_word(++app_id);
        handle_app_ident_event(&ad);
        EXPECT_NE(app(app_id), nullptr) << text;
        platform.neighbours.clear();
        ad.appid = app_word(app_id + 100);
        handle_app_ident_event(&ad);
        EXPECT_EQ(app(app_id + 100), nullptr) << text;
    }
}
