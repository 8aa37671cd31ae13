#include "home/metrics.h"

#include "home/alerts.h"
#include "home/days.h"
#include "home/mqtt.h"
#include "home/queries.h"
#include "home/serve.h"
#include "platform/linux/client/limit_classes.h"

#include <algorithm>
#include <initializer_list>
#include <time.h>

namespace {

// Reports come late, and more so after the program was away: sums of these last days may still grow.
constexpr int days_that_grow = 3;

// A text between the quotes of a label.
std::string escaped(const std::string &text)
{
    std::string out;
    for (char one : text) {
        if (one == '\n') {
            out += "\\n";
            continue;
        }
        if (one == '\\' || one == '"')
            out += '\\';
        out += one;
    }
    return out;
}

struct label {
    const char *name;
    std::string value;
};

struct page {
    std::string text;
    std::string family;

    void begin(const char *name, const char *type, const char *help)
    {
        family = std::string("appident_") + name;
        text += "# HELP " + family + " " + help + "\n# TYPE " + family + " " + type + "\n";
    }
    void value(std::initializer_list<label> labels, int64_t number)
    {
        text += family;
        const char *before = "{";
        for (const label &one : labels) {
            text += before + std::string(one.name) + "=\"" + escaped(one.value) + "\"";
            before = ",";
        }
        text += (labels.size() ? "} " : " ") + std::to_string(number) + "\n";
    }
    void single(const char *name, const char *type, const char *help, int64_t number)
    {
        begin(name, type, help);
        value({}, number);
    }
};

// Adds what the days' sums have grown by. A sum that became smaller, by a correction, counts again only beyond what it was: a
// counter that falls would be taken for a new beginning.
void add_growth(household *home)
{
    metrics_state *state = &home->metrics;
    int today = day_of(time(nullptr)), first = day_after(today, 1 - days_that_grow);
    for (const use_row &row : use_between(&home->all.db, first, today)) {
        use_totals *seen = &state->seen[{row.day, {row.device, row.app}}], *total = &state->totals[{row.device, row.app}];
        for (auto sum : {std::make_pair(&use_totals::minutes, row.minutes), std::make_pair(&use_totals::up, row.up),
                         std::make_pair(&use_totals::down, row.down)}) {
            total->*sum.first += std::max<int64_t>(sum.second - seen->*sum.first, 0);
            seen->*sum.first = std::max(seen->*sum.first, sum.second);
        }
    }
    while (!state->seen.empty() && state->seen.begin()->first.first < first)
        state->seen.erase(state->seen.begin());
}

void count_alert(void *context, const fact &news)
{
    household *home = static_cast<household *>(context);
    alert_row row;
    if (find_alert(&home->all.db, news.alert, &row))
        ++home->metrics.alerts[{row.device, row.kind}];
}

const char *class_of(const household &home, u32 app)
{
    u32 number = limit_class_of(static_cast<u32>(app_class(home.apps, app)));
    return number ? class_name(number) : "none";
}

using device_macs = std::map<int64_t, std::string>;

// Of devices that have been forgotten nothing is told.
template <typename table> void drop_forgotten(table *counted, const device_macs &macs)
{
    for (auto one = counted->begin(); one != counted->end();)
        one = macs.count(one->first.first) ? std::next(one) : counted->erase(one);
}

void tell_use(const household &home, const device_macs &macs, bool per_app, page *out)
{
    std::map<std::pair<int64_t, std::string>, int64_t> by_class;
    std::map<int64_t, use_totals> by_device;
    for (const auto &one : home.metrics.totals) {
        by_class[{one.first.first, class_of(home, one.first.second)}] += one.second.minutes;
        by_device[one.first.first].up += one.second.up;
        by_device[one.first.first].down += one.second.down;
    }
    out->begin("use_seconds_total", "counter", "Use of apps, by class of limits.");
    for (const auto &one : by_class)
        out->value({{"device", macs.at(one.first.first)}, {"class", one.first.second}}, one.second * 60);
    if (per_app) {
        out->begin("app_use_seconds_total", "counter", "Use of each app.");
        for (const auto &one : home.metrics.totals)
            out->value({{"device", macs.at(one.first.first)},
                        {"app", std::to_string(one.first.second)},
                        {"app_name", app_name(home.apps, one.first.second)}},
                       one.second.minutes * 60);
    }
    out->begin("traffic_bytes_total", "counter", "Traffic of apps in use, told when a use has ended.");
    for (const auto &one : by_device) {
        out->value({{"device", macs.at(one.first)}, {"direction", "up"}}, one.second.up);
        out->value({{"device", macs.at(one.first)}, {"direction", "down"}}, one.second.down);
    }
}

void tell_devices(household *home, const std::vector<known_device> &devices, page *out)
{
    out->begin("device_info", "gauge", "A device of the household, as it is called and watched.");
    for (const known_device &one : devices)
        out->value({{"device", one.mac},
                    {"name", one.name},
                    {"person", one.person_name},
                    {"role", one.role < 0 ? "" : std::to_string(one.role)}},
                   1);
    std::map<int64_t, bool> in_use;
    for (const session &one : sessions_now(&home->all.db))
        in_use[one.device] = true;
    out->begin("device_in_use", "gauge", "Whether an app is in use on the device.");
    for (const known_device &one : devices)
        out->value({{"device", one.mac}}, in_use.count(one.id) ? 1 : 0);
}

void tell_alerts(const household &home, const device_macs &macs, page *out)
{
    out->begin("alerts_total", "counter", "Limits passed, breaks due, apps told at first use, payments.");
    for (const auto &one : home.metrics.alerts)
        out->value({{"device", macs.at(one.first.first)}, {"kind", alert_name(one.first.second)}}, one.second);
    out->begin("notices_total", "counter", "Alerts told elsewhere, by what became of them.");
    for (const notice_way *way : home.ways) {
        out->value({{"way", way->name}, {"result", "told"}}, way->counts.told);
        out->value({{"way", way->name}, {"result", "failed"}}, way->counts.failed);
        out->value({{"way", way->name}, {"result", "skipped"}}, way->counts.skipped);
    }
}

void tell_limits(const household &home, page *out)
{
    out->begin("limit_seconds", "gauge", "Limits in force: use of a day, or of a session without a break.");
    for (const auto &device : home.limits)
        for (const auto &one : device.second)
            if (one.second.on && one.second.minutes > 0)
                out->value({{"device", device.first}, {"class", class_name(one.first)}}, one.second.minutes * 60);
}

void tell_broker(const mqtt *broker, page *out)
{
    mqtt_health health = health_of(broker);
    out->single("mqtt_up", "gauge", "Whether the broker has taken us in.", health.up ? 1 : 0);
    out->single("mqtt_pushes_total", "counter", "Pushes that the broker has acknowledged.", health.pushes_passed_on);
    out->single("mqtt_pushes_waiting", "gauge", "Pushes given to the broker and not acknowledged.", health.pushes_waiting);
    out->single("mqtt_breaks_total", "counter", "Times that pushes were gone from the spool before the broker took them.",
                health.breaks);
}

void tell_program(household *home, page *out)
{
    const history &all = home->all;
    out->single("pushes_read_total", "counter", "Pushes of the daemon that were taken in.", all.counts[count_lines]);
    out->single("pushes_lost_total", "counter", "Pushes that are known to be missing.", all.counts[count_lost]);
    out->begin("pushes_refused_total", "counter", "Lines of the spool that were passed over, by reason.");
    for (int which = count_repeated; which < count_end; ++which)
        out->value({{"reason", count_name(static_cast<home_count>(which))}}, all.counts[static_cast<size_t>(which)]);
    out->single("last_push_timestamp_seconds", "gauge", "When the last push that was taken was told.", all.place.last_time);
    out->single("database_size_bytes", "gauge", "Size of the history.", database_size(&home->all.db));
    out->single("database_failing", "gauge", "Whether the last write of the history failed.", home->all.db.failing ? 1 : 0);
    out->single("daemon_up", "gauge", "Whether the daemon answered when it was last asked.", home->truth.answers ? 1 : 0);
    out->begin("build_info", "gauge", "The program's version.");
    out->value({{"version", APPIDENT_VERSION}}, 1);
}

} // namespace

void begin_metrics(household *home)
{
    add_growth(home);
    home->metrics.totals.clear();
    home->all.listeners.push_back({fact_bit(fact_alert), count_alert, home});
}

std::string metrics_text(household *home)
{
    add_growth(home);
    const cJSON *settings = cJSON_GetObjectItemCaseSensitive(home->settings->tree.get(), "metrics");
    bool per_app = cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(settings, "per_app"));
    std::vector<known_device> devices = list_devices(&home->all.db);
    device_macs macs;
    for (const known_device &one : devices)
        macs[one.id] = one.mac;
    drop_forgotten(&home->metrics.totals, macs);
    drop_forgotten(&home->metrics.alerts, macs);
    page out;
    tell_use(*home, macs, per_app, &out);
    tell_devices(home, devices, &out);
    tell_alerts(*home, macs, &out);
    tell_limits(*home, &out);
    if (home->broker)
        tell_broker(home->broker, &out);
    tell_program(home, &out);
    return out.text;
}
