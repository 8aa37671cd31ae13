#include "home/daemon_settings.h"

#include "home/daemon_count.h"
#include "home/history_json.h"
#include "platform/linux/client/limits_text.h"
#include "platform/linux/client/payment_switches.h"
#include "platform/linux/client/request_client.h"
#include "platform/linux/client/request_protocol.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

namespace {

constexpr int timeout_ms = 2000;

appident_payment_notify_st all_switches(const std::string &mac, u32 state)
{
    appident_payment_notify_st switches = {};
    snprintf(switches.mac, sizeof(switches.mac), "%s", mac.c_str());
    for (const payment_switch &one : payment_switches)
        switches.*one.field = state;
    return switches;
}

client_request request_about(unsigned int id, const std::string &mac, const char *text = nullptr)
{
    client_request request = {};
    request.id = id;
    request.device = mac.c_str();
    request.text = text;
    return request;
}

client_request switches_request(unsigned int id, appident_payment_notify_st *switches)
{
    client_request request = {};
    request.id = id;
    request.action = switches_as_given; // to read them, 1 too
    request.switches = switches;
    return request;
}

// The answer's text in *answer, where there is one.
request_outcome ask_about(const household &home, const client_request &request, heap_text *answer = nullptr)
{
    // While it starts, its socket takes requests that it would carry out long after we gave up.
    if (daemon_is_starting())
        return request_timed_out;
    client_answer told = {};
    request_outcome outcome = call_daemon(home.truth.socket.c_str(), timeout_ms, request, &told);
    if (answer)
        *answer = std::move(told.text);
    return outcome;
}

} // namespace

bool read_limits(const household &home, const std::string &mac, json_tree *tree, const cJSON **limits)
{
    heap_text text;
    request_outcome outcome = ask_about(home, request_about(APPIDENT_GET_DEVICE_APP_LIST_USE_TIME, mac), &text);
    *limits = nullptr;
    if (outcome == request_refused)
        return true;
    tree->reset(text ? parse_json_text(text.get()) : nullptr);
    *limits = cJSON_GetObjectItemCaseSensitive(tree->get(), "data");
    return outcome == request_done && (!text || *tree);
}

bool write_limits(const household &home, const std::string &mac, const cJSON *limits)
{
    json_tree whole = compose_limits(mac, limits), tree;
    heap_text text(cJSON_PrintUnformatted(whole.get()));
    const cJSON *stored = nullptr;
    return text && ask_about(home, request_about(APPIDENT_SET_DEVICE_APP_LIST_USE_TIME, mac, text.get())) == request_done &&
           read_limits(home, mac, &tree, &stored) &&
           limits_equal(cJSON_GetObjectItemCaseSensitive(whole.get(), "data"), stored);
}

bool read_payments(const household &home, const std::string &mac, appident_payment_notify_st *switches)
{
    *switches = all_switches(mac, 0);
    request_outcome outcome = ask_about(home, switches_request(APPIDENT_GET_PAYMENT_CONFIG, switches));
    // A device of which nothing is stored yet has every switch on.
    if (outcome == request_refused)
        *switches = all_switches(mac, 1);
    return outcome == request_done || outcome == request_refused;
}

bool write_payments(const household &home, const std::string &mac, const appident_payment_notify_st &switches)
{
    appident_payment_notify_st given = switches, stored = all_switches(mac, 0);
    bool done = ask_about(home, switches_request(APPIDENT_SET_PAYMENT_CONFIG, &given)) == request_done &&
                ask_about(home, switches_request(APPIDENT_GET_PAYMENT_CONFIG, &stored)) == request_done;
    for (const payment_switch &one : payment_switches)
        done = done && stored.*one.field == switches.*one.field;
    return done;
}

bool write_device(household *home, const std::string &mac, const std::string *name, int64_t role)
{
    json_tree wanted(cJSON_CreateObject());
    add_text(wanted.get(), "mac", mac);
    if (name)
        add_text(wanted.get(), "name", *name);
    if (role >= 0)
        add_number(wanted.get(), "role", role);
    heap_text text(cJSON_PrintUnformatted(wanted.get()));
    client_request request = {};
    request.id = request_change_device;
    request.text = text.get();
    if (!text || ask_about(*home, request) != request_done)
        return false;
    ask_daemon(&home->truth, time(nullptr));
    tell_facts(&home->all);
    for (const known_device &one : list_devices(&home->all.db))
        if (one.mac == mac)
            return (role < 0 || one.role == role) && (!name || name->empty() || one.name == *name);
    return false;
}
