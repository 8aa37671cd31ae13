// payments: shows and stores a device's payment-alert switches.
#include "platform/linux/client/payment_switches.h"
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/daemon_call.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/json_file.h"
#include "tools/appidentctl/operand.h"
#include "tools/appidentctl/table.h"

#include "common/sec_plg_common.h"

#include <stdio.h>
#include <string.h>

namespace {

appident_payment_notify_st all_switches(const std::string &device, u32 state)
{
    appident_payment_notify_st switches = {};
    snprintf(switches.mac, sizeof(switches.mac), "%s", device.c_str());
    for (const payment_switch &row : payment_switches)
        switches.*row.field = state;
    return switches;
}

int call_with(const call &what, unsigned int id, unsigned int action, appident_payment_notify_st *switches)
{
    client_request request = {};
    request.id = id;
    request.switches = switches;
    request.action = action;
    client_answer answer = {};
    return ask(what.where, request, &answer);
}

void print_switches(const call &what, const appident_payment_notify_st &switches)
{
    if (given(what.line, option_json)) {
        json_tree root(cJSON_CreateObject());
        cJSON_AddStringToObject(root.get(), "mac", switches.mac);
        for (const payment_switch &row : payment_switches)
            cJSON_AddBoolToObject(root.get(), row.key, switches.*row.field);
        print_json(root.get());
        return;
    }
    text_table table = {{{"SWITCH"}, {"STATE"}, {"MEANING", false, true}}, {}};
    for (const payment_switch &row : payment_switches)
        table.rows.push_back({row.key, switches.*row.field ? "on" : "off", row.meaning});
    print_table(table);
}

// "weixin=on,alipay=off" into the switches; false when a piece is neither.
bool read_switches(const char *text, appident_payment_notify_st *switches)
{
    for (const std::string &piece : split(text, ',')) {
        size_t equals = piece.find('=');
        std::string state = equals == std::string::npos ? "" : piece.substr(equals + 1);
        const payment_switch *found = nullptr;
        for (const payment_switch &row : payment_switches)
            if (piece.substr(0, equals) == row.key)
                found = &row;
        bool on = state == "on" || state == "1";
        if (!found || (!on && state != "off" && state != "0"))
            return false;
        switches->*found->field = on;
    }
    return true;
}

// Stores and reads back: the daemon reports success even where it stores nothing.
int store(const call &what, unsigned int action, appident_payment_notify_st wanted)
{
    int code = call_with(what, APPIDENT_SET_PAYMENT_CONFIG, action, &wanted);
    if (code == exit_refused)
        fputs("appidentctl: the daemon refused the switches\n", stderr);
    if (code != exit_done)
        return code;
    appident_payment_notify_st stored = all_switches(wanted.mac, 0);
    code = call_with(what, APPIDENT_GET_PAYMENT_CONFIG, 1, &stored);
    bool same = code == exit_done;
    for (const payment_switch &row : payment_switches)
        same = same && stored.*row.field == wanted.*row.field;
    if (code == exit_done)
        print_switches(what, stored);
    if (same || code == exit_unreachable)
        return code;
    fputs("appidentctl: the switches were not stored; nothing is kept for a device of role 0, and the daemon's log says more\n",
          stderr);
    return exit_refused;
}

} // namespace

int run_payments(const call &what)
{
    const char *set = what.line.value[option_set_switches];
    bool all_off = given(what.line, option_all_off);
    std::string mac = operand_device(what, read_household(what.where));
    if (mac.empty())
        return exit_usage;
    appident_payment_notify_st switches = all_switches(mac, 0);
    if (set && all_off)
        return usage_error(what.line, "--set and --all-off at once");
    if (set && !read_switches(set, &switches))
        return usage_error(what.line, "--set %s: wants enable, weixin, alipay, qqpay or applepay, each =on or =off", set);
    if (all_off)
        return store(what, switches_all_off, switches);

    int code = call_with(what, APPIDENT_GET_PAYMENT_CONFIG, 1, &switches);
    if (code == exit_refused && !set)
        fputs("appidentctl: refused: nothing is stored for the device yet; until its first traffic every switch counts as on\n",
              stderr);
    if (code == exit_done && !set)
        print_switches(what, switches);
    if (!set || code == exit_unreachable)
        return code;
    // A device without a file has every switch on.
    if (code == exit_refused)
        switches = all_switches(mac, 1);
    read_switches(set, &switches);
    return store(what, switches_as_given, switches);
}
