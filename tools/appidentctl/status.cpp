// status: both counter pages, in plain words.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/daemon_page.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/names.h"
#include "tools/appidentctl/table.h"
#include "tools/appidentctl/time_text.h"

#include <stdio.h>
#include <string.h>

enum counter_kind { kind_count, kind_moment, kind_quiet }; // quiet: shown elsewhere
struct counter_meaning {
    const char *name;
    counter_kind kind;
    const char *meaning;
};

// In the order of the daemon's page.
static constexpr counter_meaning daemon_meanings[] = {
    {"serving", kind_quiet, ""},
    {"started_uptime", kind_quiet, ""},
    {"traffic_messages", kind_count, "traffic messages from the kernel"},
    {"traffic_short", kind_count, "  dropped: cut short"},
    {"traffic_other", kind_count, "  passed over: not accounting"},
    {"traffic_undecodable", kind_count, "  accounting without all its attributes"},
    {"traffic_lost", kind_count, "  lost: the receive buffer was full"},
    {"hits_foreign", kind_count, "  dropped: no app of ours"},
    {"hits_payment_flow", kind_count, "  payment flows, not recorded as apps"},
    {"hits_unknown_mac", kind_count, "  dropped: no MAC known for the address"},
    {"hits_clock_unset", kind_count, "  dropped: clock not set"},
    {"hits_unknown_device", kind_count, "  dropped: device not tracked"},
    {"hits_tracked", kind_count, "  recorded"},
    {"app_table_full", kind_count, "  dropped: the device's app table was full"},
    {"last_hit_time", kind_moment, "last recorded"},
    {"router_messages", kind_count, "router messages (devices, payment apps)"},
    {"router_ignored", kind_count, "  ignored: short or of another kind"},
    {"requests", kind_count, "requests answered"},
    {"requests_refused", kind_count, "  with a refusal"},
    {"pushes", kind_count, "pushes sent"},
    {"pushes_failed", kind_count, "  refused by the push service"},
    {"last_push_time", kind_moment, "last push"},
    {"no_memory", kind_count, "allocations refused"},
    {"ticks", kind_count, "periodic passes"},
};
static constexpr counter_meaning platform_meanings[] = {
    {"settings_unreadable", kind_count, "settings file unreadable, defaults in force"},
    {"no_memory", kind_count, "allocations refused"},
    {"no_descriptor", kind_count, "clients turned away: no descriptor left"},
    {"requests_served", kind_count, "requests taken in"},
    {"peers_refused", kind_count, "  turned away: no right to ask"},
    {"requests_malformed", kind_count, "  dropped: made no sense"},
    {"requests_too_slow", kind_count, "  dropped: connected and asked nothing in time"},
    {"requests_vanished", kind_count, "  left before asking"},
    {"requests_crowded_out", kind_count, "  dropped: too many waiting"},
    {"answers_undelivered", kind_count, "  answers that nobody took"},
    {"router_foreign", kind_count, "router messages from a sender without the right"},
    {"router_truncated", kind_count, "router messages cut short"},
    {"router_overruns", kind_count, "times that router messages were lost"},
    {"roster_unreadable", kind_count, "roster missing or unreadable"},
    {"roster_entries_refused", kind_count, "roster entries left out"},
    {"catalogue_unreadable", kind_count, "catalogue missing or unreadable"},
    {"neighbours_asked", kind_count, "look-ups of a MAC that asked the kernel"},
    {"neighbours_unknown", kind_count, "  without an answer"},
    {"neighbours_not_asked", kind_count, "  not asked: too many this second"},
    {"neighbours_overruns", kind_count, "neighbour table read anew after losses"},
    {"neighbours_table_full", kind_count, "neighbour table full"},
    {"neighbours_reopened", kind_count, "neighbour notifications reopened"},
    {"pushes_accepted", kind_count, "pushes and status records taken"},
    {"pushes_dropped", kind_count, "  dropped"},
    {"spool_failed", kind_count, "  not written to the spool"},
    {"subscribers_refused", kind_count, "subscribers turned away"},
    {"subscribers_dropped", kind_count, "subscribers dropped: too slow"},
};

template <size_t size> static const counter_meaning *meaning_of(const counter_meaning (&meanings)[size], const char *name)
{
    for (const counter_meaning &one : meanings)
        if (strcmp(one.name, name) == 0)
            return &one;
    return nullptr;
}

template <size_t size> static void print_page(const char *title, const counters &page, const counter_meaning (&meanings)[size])
{
    printf("\n%s\n", title);
    if (!page.found) {
        puts("  no counters to be read");
        return;
    }
    text_table table = {"rl", {}};
    for (const counter_reading &one : page.all) {
        const counter_meaning *about = meaning_of(meanings, one.name);
        if (about && about->kind == kind_quiet)
            continue;
        bool moment = about && about->kind == kind_moment;
        table.rows.push_back({moment ? (one.value ? time_text(one.value) : "never") : std::to_string(one.value),
                              about ? about->meaning : one.name});
    }
    print_table(table);
}

static cJSON *page_json(const std::string &path, const counters &page)
{
    cJSON *object = cJSON_CreateObject();
    cJSON_AddStringToObject(object, "path", path.c_str());
    cJSON_AddNumberToObject(object, "owner", page.owner);
    cJSON *all = page.found ? cJSON_AddObjectToObject(object, "counters") : cJSON_AddNullToObject(object, "counters");
    for (const counter_reading &one : page.all)
        cJSON_AddNumberToObject(all, one.name, one.value);
    return object;
}

static void print_json(const call &what, daemon_state state, const counters &own, const counters &platform)
{
    json_tree root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "state", state_name(state));
    cJSON_AddItemToObject(root.get(), "daemon", page_json(what.where.counters, own));
    cJSON_AddItemToObject(root.get(), "platform", page_json(what.where.platform_counters, platform));
    heap_text text(cJSON_PrintUnformatted(root.get()));
    puts(text.get());
}

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
        print_page("The daemon", own, daemon_meanings);
        print_page("The platform library", platform, platform_meanings);
    }
    return state == daemon_serving || state == daemon_starting ? exit_done : exit_unreachable;
}
