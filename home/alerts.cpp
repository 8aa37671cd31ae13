#include "home/alerts.h"

#include "home/devices.h"
#include "home/push_rules.h"

namespace {

constexpr double most_app = 65535;
constexpr double most_amount = 4294967295.0;
constexpr size_t rules_most = 300;

struct alert_row {
    alert_kind kind;
    int64_t app, category, amount;
    std::string rules;
};

void add_alert(history *of, const push_line &line, const cJSON *one, const alert_row &row)
{
    std::string mac;
    if (!read_mac(one, "endmac", &mac)) {
        count(of, count_wrong_device);
        return;
    }
    int64_t device = device_row(of, mac, line.time);
    if (device == 0)
        return;
    note_name(of, device, read_words(one, "alias", device_name_most));
    change(&of->db, "INSERT OR IGNORE INTO alert(time,device,kind,app,class,amount,rules) VALUES(?,?,?,?,?,?,?)", line.time,
           device, static_cast<int>(row.kind), row.app, row.category, row.amount, row.rules);
    if (sqlite3_changes(of->db.handle) > 0)
        add_fact(of,
                 {fact_alert, line.time, device, 0, static_cast<u32>(row.app), sqlite3_last_insert_rowid(of->db.handle), ""});
}

} // namespace

const char *alert_name(int64_t kind)
{
    switch (kind) {
    case alert_payment:
        return "payment";
    case alert_limit:
        return "limit";
    case alert_break:
        return "break";
    case alert_first_use:
        return "first_use";
    }
    return "";
}

void take_payment(history *of, const push_line &line, const cJSON *one)
{
    alert_row row = {alert_payment, 0, 0, line.time, read_words(one, "ruleid", rules_most)};
    if (!read_count(one, "paytype", 255, &row.category))
        row.category = 0; // "" stands for a kind that has no number
    read_count(one, "timestamp", most_amount, &row.amount);
    add_alert(of, line, one, row);
}

void take_limit(history *of, const push_line &line, const cJSON *one)
{
    alert_row row = {alert_limit, 0, 0, 0, ""};
    if (read_count(one, "class_type", 255, &row.category) && read_count(one, "use_time", most_amount, &row.amount))
        add_alert(of, line, one, row);
    else
        count(of, count_wrong_number);
}

void take_break(history *of, const push_line &line, const cJSON *one)
{
    alert_row row = {alert_break, 0, 5, 0, ""};
    if (!read_count(one, "appid", most_app, &row.app) || !read_count(one, "times", most_amount, &row.amount)) {
        count(of, count_wrong_number);
        return;
    }
    row.amount /= 60;
    add_alert(of, line, one, row);
}

void take_first_use(history *of, const push_line &line, const cJSON *one)
{
    alert_row row = {alert_first_use, 0, 4, 0, ""};
    if (read_count(one, "appid", most_app, &row.app))
        add_alert(of, line, one, row);
    else
        count(of, count_wrong_number);
}
