// Each counter counts what its name and its meaning say.
#include "common/counters.h"
#include "platform/linux/client/platform_counter_ids.h"
#include "tests/kit/household.h"

#include <algorithm>

namespace {

// What counters_init would write to a file.
const counter_page *page = nullptr;

u32 counted(const std::string &name)
{
    for (u32 i = 0; page && i < page->count; ++i)
        if (name == page->names[i])
            return page->values[i];
    return 0xDEAD;
}

class counters : public household {
protected:
    static void SetUpTestSuite() { counters_init(); }
};

// A name, words of its meaning, and what raises it by one, or gives an instant the present time; null where only the whole
// daemon does it.
struct counter_row {
    const char *name;
    const char *meaning;
    std::function<void()> event;
};

// Every counter has a row, and the row's words.
void expect_meanings(const std::vector<counter_about> &list, const std::vector<counter_row> &rows)
{
    for (const counter_about &about : list) {
        auto row =
            std::find_if(rows.begin(), rows.end(), [&](const counter_row &one) { return std::string(one.name) == about.name; });
        ASSERT_NE(row, rows.end()) << about.name << " has no row in this test";
        EXPECT_NE(std::string(about.meaning).find(row->meaning), std::string::npos) << about.name << ": " << about.meaning;
        EXPECT_LT(strlen(about.name), sizeof(counter_slot::name)) << about.name;
    }
    EXPECT_EQ(list.size(), rows.size());
}

TEST_F(counters, count_what_their_names_say)
{
    arrive(tablet);
    know(phone); // on the network, not tracked
    auto say = [&](u32 word, const char *from) { feed_traffic(accounting_message(word, start | 7, from, 1, 1)); };
    auto request = [](unsigned int id) {
        appident_payment_notify_st switches = {};
        cgi_event_handler(id, &switches, nullptr, nullptr);
    };
    const std::vector<counter_row> rows = {
        {"serving", "once the loop runs", nullptr},
        {"started_uptime", "uptime second", nullptr},
        {"traffic_messages", "messages from the kernel", [&] { say(app_word(7), tablet.ip); }},
        {"traffic_short", "cut short", [&] { feed_traffic("short"); }},
        {"traffic_other", "not accounting", [&] { feed_traffic(netlink_message(0x10C, std::string(40, '\0'))); }},
        {"traffic_undecodable", "without all its attributes",
         [&] { feed_traffic(netlink_message(0x10B, attribute(27, bytes_of(app_word(7))))); }},
        {"traffic_lost", "lost", nullptr},
        {"hits_foreign", "no app of ours", [&] { say(app_word(7, 0, 2), tablet.ip); }},
        {"hits_payment_flow", "payment flows", [&] { say(app_word(301), tablet.ip); }},
        {"hits_unknown_mac", "no MAC", [&] { say(app_word(7), "192.168.1.77"); }},
        {"hits_clock_unset", "clock", [&] { set_clock(1000), say(app_word(7), tablet.ip), set_clock(evening); }},
        {"hits_unknown_device", "not tracked", [&] { say(app_word(7), phone.ip); }},
        {"hits_tracked", "recorded", [&] { say(app_word(7), tablet.ip); }},
        {"app_table_full", "table was full",
         [&] {
             for (u32 i = 0; i < apps_per_device; ++i)
                 say(app_word(1000 + i), tablet.ip);
         }},
        {"rules_not_kept", "rules beyond",
         [&] {
             say(app_word(1000), tablet.ip);
             app_data hit = {};
             for (hit.ruleid = 100; hit.ruleid < 100 + 1024; ++hit.ruleid)
                 add_rule_record(app(1000), &hit);
         }},
        {"last_hit_time", "last recorded", [&] { set_clock(evening + 5), say(app_word(7), tablet.ip); }},
        {"router_messages", "router messages", [&] { feed_router(host_message(0, tablet.mac)); }},
        {"router_ignored", "ignored", [&] { feed_router(host_message(1, tablet.mac)); }},
        {"requests", "answered", [&] { request(APPIDENT_SET_PAYMENT_CONFIG); }},
        {"requests_refused", "requests refused", [&] { request(APPIDENT_GET_DEVICE_APP_RECORD); }},
        {"pushes", "sent", [&] { my_push(1023, "[]", 0); }},
        {"pushes_failed", "refused by the push service",
         [&] {
             platform.failing = {"new_push_msg"};
             my_push(1023, "[]", 0);
             platform.failing = {};
         }},
        {"last_push_time", "last push",
         [&] {
             u32 before = counted("last_push_time");
             my_push(1023, "[]", 0);
             EXPECT_EQ(counted("last_push_time"), before) << "a push does not ask the clock";
             set_clock(evening + 9);
             tick();
         }},
        {"no_memory", "allocations", nullptr},
        {"ticks", "passes", [&] { tick(); }},
    };
    const std::vector<counter_about> list = {APPIDENT_COUNTERS(COUNTER_ABOUT)};
    expect_meanings(list, rows);
    EXPECT_NE(counted("started_uptime"), 0u);
    for (const counter_row &row : rows) {
        if (!row.event)
            continue;
        u32 before = counted(row.name);
        row.event();
        bool instant = std::find_if(list.begin(), list.end(), [&](const counter_about &about) {
                           return std::string(about.name) == row.name;
                       })->kind == counter_kind::instant;
        EXPECT_EQ(counted(row.name), instant ? static_cast<u32>(clock_now()) : before + 1) << row.name;
    }
}

// That the platform library counts under these names, its own tests show.
TEST_F(counters, of_the_platform_library_mean_what_their_names_say)
{
    expect_meanings({PLATFORM_COUNTERS(COUNTER_ABOUT)}, {
                                                            {"settings_unreadable", "settings file", nullptr},
                                                            {"no_memory", "allocations", nullptr},
                                                            {"no_descriptor", "descriptor", nullptr},
                                                            {"requests_served", "requests taken in", nullptr},
                                                            {"peers_refused", "no right to ask", nullptr},
                                                            {"requests_malformed", "made no sense", nullptr},
                                                            {"requests_too_slow", "in time", nullptr},
                                                            {"requests_vanished", "left before asking", nullptr},
                                                            {"requests_crowded_out", "too many waiting", nullptr},
                                                            {"answers_undelivered", "answers", nullptr},
                                                            {"socket_retries", "not at its path", nullptr},
                                                            {"router_truncated", "too large", nullptr},
                                                            {"router_overruns", "queue full", nullptr},
                                                            {"config_unreadable", "no JSON", nullptr},
                                                            {"roster_unreadable", "roster missing", nullptr},
                                                            {"roster_entries_refused", "entries left out", nullptr},
                                                            {"observed_unreadable", "observed devices unreadable", nullptr},
                                                            {"observed_unwritten", "could not be written", nullptr},
                                                            {"devices_forgotten", "gave way", nullptr},
                                                            {"devices_refused", "not taken", nullptr},
                                                            {"probes_sent", "asked for", nullptr},
                                                            {"probes_failed", "refused by the kernel", nullptr},
                                                            {"host_messages", "was told", nullptr},
                                                            {"host_messages_failed", "could not be told", nullptr},
                                                            {"catalogue_unreadable", "catalogue", nullptr},
                                                            {"neighbours_asked", "look-ups", nullptr},
                                                            {"neighbours_unknown", "without an answer", nullptr},
                                                            {"neighbours_not_asked", "not made", nullptr},
                                                            {"neighbours_overruns", "after losses", nullptr},
                                                            {"neighbours_table_full", "table full", nullptr},
                                                            {"neighbours_reopened", "reopened", nullptr},
                                                            {"pushes_accepted", "taken", nullptr},
                                                            {"pushes_dropped", "dropped: queue full", nullptr},
                                                            {"spool_failed", "spool", nullptr},
                                                            {"subscribers_refused", "turned away", nullptr},
                                                            {"subscribers_dropped", "too slow", nullptr},
                                                        });
}

} // namespace

int counter_page_create(const char *, const counter_page &shown)
{
    page = &shown;
    return -1;
}

void counter_page_write(const counter_page &) {}
