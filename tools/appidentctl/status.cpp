// status: what matters on one screen, or with --all every counter page, in plain words.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/daemon_page.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/household.h"
#include "tools/appidentctl/json_file.h"
#include "tools/appidentctl/table.h"
#include "tools/appidentctl/time_text.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

namespace {

constexpr counter_about daemon_counters[] = {APPIDENT_COUNTERS(COUNTER_ABOUT)};
constexpr counter_about platform_counters[] = {PLATFORM_COUNTERS(COUNTER_ABOUT)};
constexpr counter_about feed_texts[] = {FEED_COUNTERS(COUNTER_ABOUT)};

// Null for a counter of another release.
template <size_t size> const counter_about *find_about(const counter_about (&list)[size], const char *name)
{
    for (const counter_about &one : list)
        if (strcmp(one.name, name) == 0)
            return &one;
    return nullptr;
}

std::string instant_text(u32 epoch)
{
    return epoch ? time_text(epoch) : "never";
}

template <size_t size> void print_page(const char *title, const counters &page, const counter_about (&list)[size])
{
    printf("\n%s\n", title);
    if (!page.found) {
        puts("  no counters to be read");
        return;
    }
    text_table table = {{{"", true}, {"", false, true}}, {}};
    for (const counter_reading &one : page.all) {
        const counter_about *about = find_about(list, one.name);
        counter_kind kind = about ? about->kind : counter_kind::total;
        if (kind == counter_kind::state)
            continue;
        std::string meaning = about ? about->meaning : one.name;
        table.rows.push_back({kind == counter_kind::instant ? instant_text(one.value) : std::to_string(one.value),
                              (kind == counter_kind::part ? "  " : "") + meaning});
    }
    print_table(table);
}

// What was dropped, refused or lost, one for each reason that occurred: "2 cut short, 1 device not tracked".
template <size_t size> std::string losses(const counters &page, const counter_about (&list)[size])
{
    std::string all;
    for (const counter_reading &one : page.all) {
        const counter_about *about = find_about(list, one.name);
        if (about && about->kind == counter_kind::part && one.value && strncmp(about->meaning, "recorded", 8) != 0)
            all += (all.empty() ? "" : "; ") + std::to_string(one.value) + " " + about->meaning;
    }
    return all.empty() ? "none" : all;
}

std::string uptime_text(const counters &own)
{
    return span_text(seconds_since(counter_value(own, counter_started_uptime)));
}

std::string devices_text(const household &known)
{
    size_t on_line = 0, watched = 0;
    for (const known_device &one : known.devices) {
        on_line += one.on_line;
        watched += one.role > 0;
    }
    return std::to_string(known.devices.size()) + " known, " + std::to_string(on_line) + " on line, " +
           std::to_string(watched) + " watched";
}

void print_state(daemon_state state, const counters &own)
{
    printf("appident " APPIDENT_VERSION " is %s", state_name(state));
    if (own.found)
        printf(" (process %u)", own.owner);
    if (state == daemon_starting)
        printf(", %u s to go", seconds_to_start(own));
    if (state == daemon_serving)
        printf(", up %s", uptime_text(own).c_str());
    puts(state == daemon_gone ? "; these are the figures of its last run." : ".");
}

// The feed in two lines: what it sees and tells, and what it cannot.
void add_feed(text_table *table, const counters &feed)
{
    auto value = [&](feed_counter which) { return counter_value(feed, which); };
    if (!feed.found || !owner_lives(feed)) {
        table->rows.push_back({"feed", feed.found ? "has ended" : "not running"});
        return;
    }
    table->rows.push_back({"feed", std::to_string(value(feed_flows)) + " connections, " + told_text(feed) + "; " +
                                       std::to_string(value(feed_messages_sent)) + " messages sent"});
    const struct {
        u32 count;
        const char *what;
    } troubles[] = {
        {value(feed_hellos_nameless), "hellos without a name"},
        {value(feed_hits_not_told), "intervals of devices without IPv4"},
        {value(feed_log_lost), "packets lost"},
        {value(feed_messages_failed), "messages failed"},
        {value(feed_flow_table_full) + value(feed_inspections_full) + value(feed_device_table_full) + value(feed_uses_full),
         "times a table was full"},
        {value(feed_offload_unguarded), "rules that offload connections too early, or uncounted"},
        {value(feed_lines_skipped), "lines of apps.conf skipped"},
    };
    std::string all;
    for (const auto &one : troubles)
        if (one.count)
            all += (all.empty() ? "" : "; ") + std::to_string(one.count) + " " + one.what;
    table->rows.push_back({"not seen", all.empty() ? "none" : all});
}

void print_summary(const call &what, const counters &own, const counters &platform, const counters &feed)
{
    text_table table = {{{""}, {"", false, true}}, {}};
    table.rows.push_back({"devices", devices_text(read_household(what.where))});
    table.rows.push_back({"traffic", std::to_string(counter_value(own, counter_traffic_messages)) + " messages, " +
                                         std::to_string(counter_value(own, counter_hits_tracked)) + " recorded, the last " +
                                         instant_text(counter_value(own, counter_last_hit_time))});
    table.rows.push_back({"pushes", std::to_string(counter_value(own, counter_pushes)) + " sent, the last " +
                                        instant_text(counter_value(own, counter_last_push_time))});
    table.rows.push_back({"requests", std::to_string(counter_value(own, counter_requests)) + " answered"});
    table.rows.push_back({"not used", losses(own, daemon_counters)});
    table.rows.push_back({"platform", platform.found ? losses(platform, platform_counters) : "no counters to be read"});
    add_feed(&table, feed);
    print_table(table);
    puts("'appidentctl status --all' shows every counter, 'appidentctl doctor' what is wrong.");
}

cJSON *page_json(const std::string &path, const counters &page)
{
    cJSON *object = cJSON_CreateObject();
    cJSON_AddStringToObject(object, "path", path.c_str());
    cJSON_AddNumberToObject(object, "owner", page.owner);
    cJSON *all = page.found ? cJSON_AddObjectToObject(object, "counters") : cJSON_AddNullToObject(object, "counters");
    for (const counter_reading &one : page.all)
        cJSON_AddNumberToObject(all, one.name, one.value);
    return object;
}

void print_as_json(const call &what, daemon_state state, const counters &own, const counters &platform, const counters &feed)
{
    json_tree root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "version", APPIDENT_VERSION);
    cJSON_AddStringToObject(root.get(), "state", state_name(state));
    cJSON_AddItemToObject(root.get(), "daemon", page_json(what.where.counters, own));
    cJSON_AddItemToObject(root.get(), "platform", page_json(what.where.platform_counters, platform));
    cJSON_AddItemToObject(root.get(), "feed", page_json(what.where.feed_counters, feed));
    print_json(root.get());
}

} // namespace

int run_status(const call &what)
{
    counters own = read_counters(what.where.counters);
    counters platform = read_counters(what.where.platform_counters);
    counters feed = read_counters(what.where.feed_counters);
    daemon_state state = state_of(own);
    if (given(what.line, option_json)) {
        print_as_json(what, state, own, platform, feed);
    } else {
        print_state(state, own);
        if (given(what.line, option_all)) {
            print_page("The daemon", own, daemon_counters);
            print_page("The platform library", platform, platform_counters);
            print_page("The feed", feed, feed_texts);
        } else if (own.found) {
            print_summary(what, own, platform, feed);
        }
    }
    return state == daemon_serving || state == daemon_starting ? exit_done : exit_unreachable;
}
