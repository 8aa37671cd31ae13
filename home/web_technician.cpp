// For who looks after the box: counters, the doctor's findings, and whether the program is well.
#include "common/counters.h"
#include "feed/feed_counters.h"
#include "home/doctor_findings.h"
#include "home/metrics.h"
#include "home/schema.h"
#include "home/secrets.h"
#include "home/web_routes.h"
#include "home/web_state.h"
#include "platform/linux/client/platform_counter_ids.h"

#include <string.h>

namespace {

struct counter_name {
    const char *name, *meaning;
};
#define NAME_AND_MEANING(name, kind, meaning) {#name, meaning},
constexpr counter_name of_daemon[] = {APPIDENT_COUNTERS(NAME_AND_MEANING)};
constexpr counter_name of_platform[] = {PLATFORM_COUNTERS(NAME_AND_MEANING)};
constexpr counter_name of_feed[] = {FEED_COUNTERS(NAME_AND_MEANING)};
#define COUNT_NAME(name, meaning) {#name, meaning},
constexpr counter_name of_web[] = {WEB_COUNTS(COUNT_NAME)};
#define REFUSAL_NAME(code, status, text) {#code, "refused (" #status "): " text},
constexpr counter_name of_refusals[] = {WEB_REFUSALS(REFUSAL_NAME)};
// In the order of home_count.
constexpr const char *of_history[] = {"lines of the spool taken",
                                      "lines that never came",
                                      "lines passed over: taken before",
                                      "passed over: longer than a line can be",
                                      "passed over: no JSON",
                                      "passed over: no time, code or data",
                                      "passed over: a push of an unknown kind",
                                      "passed over: no MAC",
                                      "passed over: a number that cannot be",
                                      "devices not kept: too many"};
static_assert(sizeof(of_history) / sizeof(*of_history) == count_end, "a meaning for each count");

void add_counter(cJSON *list, const char *page, const char *name, const char *meaning, int64_t value)
{
    cJSON *item = add_item(list);
    add_text(item, "page", page);
    add_text(item, "name", name);
    add_text(item, "meaning", meaning);
    add_number(item, "value", value);
}

// Counters that another program keeps in a file, as far as there is one.
template <size_t size> void add_page(cJSON *list, const char *page, const counter_name (&names)[size], const std::string &path)
{
    counter_reading values[size];
    u32 owner = 0;
    int read = counter_page_read(path.c_str(), values, static_cast<int>(size), &owner);
    for (const counter_name &one : names)
        for (int i = 0; i < read; ++i)
            if (strcmp(values[i].name, one.name) == 0)
                add_counter(list, page, one.name, one.meaning, values[i].value);
}

void add_database(cJSON *root, database *db)
{
    cJSON *about = cJSON_AddObjectToObject(root, "database");
    add_number(about, "bytes", database_size(db));
    add_number(about, "version", schema_version());
    add_number(about, "sessions", number_of(db, 0, "SELECT count(*) FROM session"));
    add_number(about, "day_sums", number_of(db, 0, "SELECT count(*) FROM day_use"));
    add_number(about, "alerts", number_of(db, 0, "SELECT count(*) FROM alert"));
    add_number(about, "devices", number_of(db, 0, "SELECT count(*) FROM device"));
    add_number(about, "kept_since", history_since(db));
    add_text(about, "set_aside", db->set_aside);
}

bool may_scrape(const web_request &asked)
{
    const std::string &token = asked.server->settings.metrics_token;
    return asked.from_this_box || (!token.empty() && same_secret(header_value(asked, "Authorization"), "Bearer " + token));
}

} // namespace

void answer_counters(web_request *asked, web_answer *answer)
{
    household *home = asked->home;
    json_tree body(cJSON_CreateObject());
    cJSON *list = cJSON_AddArrayToObject(body.get(), "counters");
    add_page(list, "daemon", of_daemon, counters_path);
    add_page(list, "platform", of_platform, home->settings->runtime_dir + "/platform.counters");
    add_page(list, "feed", of_feed, feed_counters_path);
    for (size_t i = 0; i < count_end; ++i)
        add_counter(list, "history", count_name(static_cast<home_count>(i)), of_history[i], home->all.counts[i]);
    for (size_t i = 0; i < web_count_end; ++i)
        add_counter(list, "page", of_web[i].name, of_web[i].meaning, asked->server->counts[i]);
    for (size_t i = 0; i < web_refusal_end; ++i)
        add_counter(list, "page", of_refusals[i].name, of_refusals[i].meaning, asked->server->refusals[i]);
    add_database(body.get(), &home->all.db);
    add_doctor_findings(cJSON_AddArrayToObject(body.get(), "doctor"), asked->server->settings.tool);
    answer_with(answer, body);
}

void answer_metrics(web_request *asked, web_answer *answer)
{
    if (!may_scrape(*asked))
        return refuse(answer, refused_forbidden);
    answer->type = "text/plain; version=0.0.4; charset=utf-8";
    answer->text = metrics_text(asked->home);
}

void answer_health(web_request *asked, web_answer *answer)
{
    const database &db = asked->home->all.db;
    bool well = db.error == SQLITE_OK && !db.failing && !db.damaged;
    answer->status = well ? 200 : 503;
    answer->type = "text/plain; charset=utf-8";
    answer->text = well ? "ok\n" : "the database cannot be written\n";
}
