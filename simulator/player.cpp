#include "simulator/player.h"

#include "simulator/push_watch.h"
#include "simulator/report.h"
#include "simulator/world/daemon_process.h"
#include "simulator/world/household_files.h"
#include "simulator/world/kernel_messages.h"

#include "common/guards.h"
#include "common/sec_plg_common.h"
#include "platform/linux/client/request_client.h"

#include <cjson/cJSON.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

namespace {

constexpr int request_timeout_ms = 60000;

struct player {
    const scenario &household;
    std::vector<device_entry> devices; // as the roster shows them now
    fd_guard conntrack;
    push_watch watch;
    played result;
};

const device_entry &device_in(const player &me, int index)
{
    return me.devices[static_cast<size_t>(index)];
}

void look(player &me)
{
    for (const outcome &one : read_pushes(me.watch, me.household, now_by_the_clock())) {
        tell_outcome(me.household, one);
        me.result.seen.push_back(one);
    }
}

// Watches the pushes until the moment has come. False when the daemon has ended meanwhile.
bool wait_for(player &me, moment when, pid_t daemon)
{
    constexpr timespec one_second = {1, 0};
    while (now_by_the_clock() < when) {
        nanosleep(&one_second, nullptr);
        look(me);
        if (!daemon_runs(daemon))
            return false;
    }
    return true;
}

std::string limits_text(const std::string &mac, const std::vector<use_limit> &limits)
{
    json_tree root(cJSON_CreateObject());
    cJSON_AddStringToObject(root.get(), "device", mac.c_str());
    cJSON *data = cJSON_AddArrayToObject(root.get(), "data");
    for (const use_limit &limit : limits) {
        cJSON *entry = cJSON_CreateObject();
        cJSON_AddNumberToObject(entry, "class_type", limit.class_type);
        cJSON_AddNumberToObject(entry, "onoff", limit.on);
        cJSON_AddNumberToObject(entry, "use_time", limit.minutes);
        cJSON *apps = cJSON_AddArrayToObject(entry, "appid");
        for (u32 app : limit.apps)
            cJSON_AddItemToArray(apps, cJSON_CreateNumber(app));
        cJSON_AddItemToArray(data, entry);
    }
    heap_text text(cJSON_PrintUnformatted(root.get()));
    return text ? text.get() : "";
}

void ask_daemon(player &me, const household_event &event)
{
    const std::string &mac = device_in(me, event.device).mac;
    std::string limits = limits_text(mac, event.limits);
    bool question = event.kind == event_ask;
    client_request request = {question ? APPIDENT_GET_CUR_DEVICE_APP : APPIDENT_SET_DEVICE_APP_LIST_USE_TIME, mac.c_str(),
                              question ? nullptr : limits.c_str(), nullptr, 0};
    client_answer answer = {};
    request_outcome outcome = call_daemon(request_socket_path, request_timeout_ms, request, &answer);
    if (outcome != request_done)
        fprintf(stderr, "the daemon does not answer: outcome %d\n", outcome);
    if (!question || outcome != request_done)
        return;
    for (const auto &one : read_answer(answer.text.get(), event.device, now_by_the_clock())) {
        tell_outcome(me.household, one);
        me.result.seen.push_back(one);
    }
}

void happen(player &me, const household_event &event)
{
    tell_event(me.household, event);
    device_entry &device = me.devices[static_cast<size_t>(event.device)];
    if (event.kind == event_ask || event.kind == event_limits)
        return ask_daemon(me, event);
    if (event.kind == event_role)
        device.role = static_cast<int>(event.number);
    else
        device.online = event.kind == event_online;
    write_roster(me.devices);
    if (event.kind == event_role)
        return;
    nlk_host_msg message = host_message(device.online ? IGD_ACTION_ADD : IGD_ACTION_DEL, device.ip, device.mac);
    send_router_message(runtime_directory, &message, sizeof message);
}

void send_step(player &me, const step &action)
{
    const device_entry &device = device_in(me, action.device);
    if (action.kind == step_hit) {
        accounting flow = {application_word(action.app), action.rule, 0, device.ip, "203.0.113.80", action.up, action.down};
        std::vector<unsigned char> message = accounting_message(flow);
        multicast(me.conntrack.get(), action.rule & start_mark ? group_new : group_update, message.data(), message.size());
    } else if (action.kind == step_payment_rule) {
        nlk_sys_msg message = app_message(IGD_ACTION_ADD, application_word(action.app), action.rule, device.ip, device.mac);
        send_router_message(runtime_directory, &message, sizeof message);
    } else if (action.kind == step_catalogue) {
        tell_new_app(me.household, action);
        write_catalogue(me.household.apps, action.at);
    } else {
        happen(me, *action.event);
    }
}

} // namespace

moment now_by_the_clock()
{
    return time(nullptr);
}

std::vector<std::string> fast_clock_words(moment start, int speed)
{
    char pace[64];
    snprintf(pace, sizeof pace, "%+lldx%d", static_cast<long long>(start - now_by_the_clock()), speed);
    return {"faketime", "-m", "-f", pace};
}

played play(const scenario &household, const std::vector<step> &plan, pid_t daemon)
{
    player me{household, household.devices, fd_guard(open_conntrack()), {}, {}};
    if (me.conntrack.get() < 0) {
        fprintf(stderr, "a netlink socket of netfilter: %s\n", strerror(errno));
        return std::move(me.result);
    }
    for (const step &action : plan) {
        if (!wait_for(me, action.at, daemon) || !daemon_serves())
            return std::move(me.result);
        send_step(me, action);
    }
    me.result.complete = wait_for(me, household.end, daemon);
    look(me);
    me.result.unreadable = me.watch.unreadable;
    return std::move(me.result);
}
