#include "home/daemon_truth.h"

#include "home/devices.h"
#include "home/queries.h"
#include "platform/linux/client/json_text.h"
#include "platform/linux/client/request_client.h"

#include <algorithm>
#include <net/if.h>
#include <string.h>

namespace {

constexpr int timeout_ms = 300;
constexpr unsigned int request_in_use = 9;
constexpr unsigned int request_list_devices = 1000;
constexpr size_t devices_at_once = 200;
constexpr int64_t asked_after_seen = 2 * 86400;
constexpr double most_time = 4294967295.0;

json_tree ask(const daemon_truth &truth, const client_request &request, request_outcome *outcome)
{
    client_answer answer = {};
    *outcome = call_daemon(truth.socket.c_str(), timeout_ms, request, &answer);
    return json_tree(*outcome == request_done && answer.text ? parse_json_text(answer.text.get()) : nullptr);
}

void take_devices(daemon_truth *truth, const cJSON *devices, int64_t time)
{
    const cJSON *one = nullptr;
    cJSON_ArrayForEach(one, devices) {
        device_news news = {};
        if (!read_mac(one, "mac", &news.mac) || !read_count(one, "role", 255, &news.role))
            continue;
        news.name = read_words(one, "name", device_name_most);
        news.name_from = read_words(one, "name_from", 16);
        news.address = read_words(one, "address", 64);
        news.role_from = read_words(one, "role_from", 16);
        news.on_line = cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(one, "on_line"));
        news.private_mac = cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(one, "private_mac"));
        read_count(one, "last_seen", most_time, &news.last_seen);
        bool named = news.role != 0 || news.name_from == "person";
        if (!named && !news.on_line && news.last_seen != 0 && news.last_seen + truth->long_gone < time)
            continue;
        if (news.on_line)
            read_count(one, "on_line_since", most_time, &truth->on_line_since[news.mac]);
        note_news(truth->of, news, news.last_seen ? news.last_seen : time);
    }
}

// As many devices a time as fit an answer.
request_outcome ask_for_devices(daemon_truth *truth, int64_t time)
{
    request_outcome outcome = request_done;
    std::string last, input;
    for (bool more = true; more;) {
        client_request request = {};
        request.id = request_list_devices;
        request.text = input.c_str();
        json_tree answer = ask(*truth, request, &outcome);
        if (!answer)
            break;
        if (last.empty())
            truth->on_line_since.clear();
        truth->lan_interface = read_words(cJSON_GetObjectItemCaseSensitive(answer.get(), "lan"), "interface", IFNAMSIZ - 1);
        const cJSON *devices = cJSON_GetObjectItemCaseSensitive(answer.get(), "devices");
        take_devices(truth, devices, time);
        // The answers go by MAC; one that does not get on ends this.
        std::string before = last;
        read_mac(cJSON_GetArrayItem(devices, cJSON_GetArraySize(devices) - 1), "mac", &last);
        more = cJSON_IsTrue(cJSON_GetObjectItemCaseSensitive(answer.get(), "more")) && last > before;
        input = "{\"after\":\"" + last + "\"}";
    }
    return outcome;
}

heap_text question_about(const std::vector<std::string> &macs)
{
    json_tree question(cJSON_CreateObject());
    cJSON *list = cJSON_AddArrayToObject(question.get(), "device");
    for (const std::string &mac : macs)
        cJSON_AddItemToArray(list, cJSON_CreateString(mac.c_str()));
    return heap_text(cJSON_PrintUnformatted(question.get()));
}

void read_in_use(const cJSON *results, std::vector<use_now> *in_use)
{
    const cJSON *device = nullptr, *app = nullptr;
    cJSON_ArrayForEach(device, results) {
        use_now one = {};
        if (!read_mac(device, "device", &one.mac))
            continue;
        cJSON_ArrayForEach(app, cJSON_GetObjectItemCaseSensitive(device, "data")) {
            int64_t id = 0;
            if (!read_count(app, "appid", 65535, &id) || id == 0 || !read_count(app, "starttime", most_time, &one.start) ||
                one.start == 0 || !read_count(app, "sumtime", most_time, &one.minutes))
                continue;
            one.app = static_cast<u32>(id);
            in_use->push_back(one);
        }
    }
}

std::vector<std::string> devices_to_ask(history *of, int64_t time)
{
    std::vector<std::string> macs;
    for (const known_device &one : list_devices(&of->db))
        if (one.role != 0 && (one.on_line || one.last_seen + asked_after_seen > time))
            macs.push_back(one.mac);
    return macs;
}

} // namespace

void ask_daemon(daemon_truth *truth, int64_t time)
{
    constexpr int64_t again_after = 600;
    request_outcome outcome = request_done;
    if (truth->names_known || time / 60 * 60 % again_after == 0) {
        outcome = ask_for_devices(truth, time);
        truth->names_known = outcome != request_refused;
    }
    std::vector<std::string> macs = devices_to_ask(truth->of, time);
    std::vector<use_now> in_use;
    bool answers = outcome == request_done || outcome == request_refused;
    for (size_t at = 0; answers && at < macs.size(); at += devices_at_once) {
        std::vector<std::string> some(macs.begin() + static_cast<std::ptrdiff_t>(at),
                                      macs.begin() + static_cast<std::ptrdiff_t>(std::min(at + devices_at_once, macs.size())));
        heap_text question = question_about(some);
        client_request request = {};
        request.id = request_in_use;
        request.device = question.get();
        json_tree answer = ask(*truth, request, &outcome);
        answers = outcome == request_done && answer;
        if (!answers)
            break;
        std::vector<use_now> listed;
        read_in_use(cJSON_GetObjectItemCaseSensitive(answer.get(), "results"), &listed);
        take_now(truth->of, some, listed, time);
        in_use.insert(in_use.end(), listed.begin(), listed.end());
    }
    truth->answers = answers;
    if (answers) {
        truth->answered = time;
        truth->now.swap(in_use);
    } else {
        truth->now.clear();
    }
    add_fact(truth->of, {fact_now, time, 0, 0, 0, 0, ""});
}
