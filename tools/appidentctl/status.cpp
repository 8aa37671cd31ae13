// status: both counter pages, in plain words.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/daemon_page.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/names.h"
#include "tools/appidentctl/table.h"
#include "tools/appidentctl/time_text.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr counter_about daemon_counters[] = {APPIDENT_COUNTERS(COUNTER_ABOUT)};
constexpr counter_about platform_counters[] = {PLATFORM_COUNTERS(COUNTER_ABOUT)};

// Null for a counter of another release.
template <size_t size> const counter_about *find_about(const counter_about (&list)[size], const char *name)
{
    for (const counter_about &one : list)
        if (strcmp(one.name, name) == 0)
            return &one;
    return nullptr;
}

std::string shown_value(counter_kind kind, u32 value)
{
    if (kind != counter_kind::instant)
        return std::to_string(value);
    return value ? time_text(value) : "never";
}

template <size_t size> void print_page(const char *title, const counters &page, const counter_about (&list)[size])
{
    printf("\n%s\n", title);
    if (!page.found) {
        puts("  no counters to be read");
        return;
    }
    text_table table = {"rl", {}};
    for (const counter_reading &one : page.all) {
        const counter_about *about = find_about(list, one.name);
        counter_kind kind = about ? about->kind : counter_kind::total;
        if (kind == counter_kind::state)
            continue;
        std::string meaning = about ? about->meaning : one.name;
        table.rows.push_back({shown_value(kind, one.value), (kind == counter_kind::part ? "  " : "") + meaning});
    }
    print_table(table);
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

void print_json(const call &what, daemon_state state, const counters &own, const counters &platform)
{
    json_tree root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "state", state_name(state));
    cJSON_AddItemToObject(root.get(), "daemon", page_json(what.where.counters, own));
    cJSON_AddItemToObject(root.get(), "platform", page_json(what.where.platform_counters, platform));
    heap_text text(cJSON_PrintUnformatted(root.get()));
    puts(text.get());
}

} // namespace

int run_status(const call &what)
{
    counters own = read_counters(what.where.counters);
    counters platform = read_counters(what.where.platform_counters);
    daemon_state state = state_of(own);
    if (given(what.line, option_json)) {
        print_json(what, state, own, platform);
    } else {
        printf("The daemon is %s", state_name(state));
        if (own.found)
            printf(" (process %u)", own.owner);
        if (state == daemon_starting)
            printf(", %u s to go", seconds_to_start(own));
        puts(state == daemon_gone ? "; these are the figures of its last run." : ".");
        print_page("The daemon", own, daemon_counters);
        print_page("The platform library", platform, platform_counters);
    }
    return state == daemon_serving || state == daemon_starting ? exit_done : exit_unreachable;
}
