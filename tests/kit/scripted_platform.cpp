#include "tests/kit/scripted_platform.h"

#include "appident/model/records.h"

#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>

scripted_platform platform;

home_device &scripted_platform::device(const std::string &mac)
{
    for (home_device &known : devices)
        if (known.mac == mac)
            return known;
    devices.push_back({mac});
    return devices.back();
}

bool lock_is_held()
{
    if (pthread_mutex_trylock(&device_apps_mtx) != 0)
        return true;
    pthread_mutex_unlock(&device_apps_mtx);
    return false;
}

std::array<unsigned char, 6> mac_from_text(const std::string &text)
{
    std::array<unsigned char, 6> mac{};
    for (size_t i = 0; i < mac.size() && 3 * i + 1 < text.size(); ++i)
        mac[i] = static_cast<unsigned char>(std::stoi(text.substr(3 * i, 2), nullptr, 16));
    return mac;
}

std::string mac_to_text(const unsigned char *mac)
{
    char text[18];
    snprintf(text, sizeof text, "%02X-%02X-%02X-%02X-%02X-%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

namespace {

bool fails(const std::string &what)
{
    return platform.failing.count(what) != 0;
}

void leaves(const std::string &what)
{
    platform.outgoing.push_back(what + (lock_is_held() ? "" : " unlocked"));
}

// What a device service answers of the scripted devices; "" for another service.
std::string device_list(const std::string &path, const std::string &query)
{
    bool online = path == "/app/devices/webs/getdeviceslist.cgi";
    if (!online && path != "/app/devices/webs/get_offline_dev_list.cgi")
        return "";
    std::string only_mac = online && query.rfind("mac=", 0) == 0 ? query.substr(4) : "", data;
    for (const home_device &known : platform.devices)
        if (known.online == online && (only_mac.empty() || known.mac == only_mac))
            data += (data.empty() ? "" : ",") + ("{\"mac\":\"" + known.mac) + "\",\"role\":\"" + known.role + "\"}";
    return "{\"err_no\":\"0\",\"data\":[" + data + "]}";
}

home_device *known_device(const unsigned char *mac)
{
    for (home_device &known : platform.devices)
        if (known.mac == mac_to_text(mac))
            return &known;
    return nullptr;
}

} // namespace

extern "C" {

int ipc_server_accept2(void)
{
    return platform.serve_request ? platform.serve_request() : -1;
}

int nlk_msg_recv(struct igd_netlink_handler *h, void *buf, int len)
{
    if (h->sock_fd > 0)
        recv(h->sock_fd, buf, 1, MSG_DONTWAIT);
    if (platform.router_messages.empty())
        return -1;
    std::string message = platform.router_messages.front();
    platform.router_messages.erase(platform.router_messages.begin());
    size_t taken = std::min(message.size(), static_cast<size_t>(len));
    memcpy(buf, message.data(), taken);
    return static_cast<int>(taken);
}

struct nl_sock *nltool_alloc_handle(void)
{
    return nullptr;
}

int get_lan_config(struct nos_lan_cfg *cfg)
{
    if (fails("get_lan_config"))
        return -1;
    *cfg = {{2, 0, 0, 0, 0, 254}, {inet_addr("192.168.1.1")}, {inet_addr("255.255.255.0")}};
    return 0;
}

int get_mac_by_ip(uint32_t ip, unsigned char *mac)
{
    in_addr address{ip};
    auto found = platform.neighbours.find(inet_ntoa(address));
    if (found == platform.neighbours.end())
        return -1;
    memcpy(mac, mac_from_text(found->second).data(), 6);
    return 0;
}

int call_cgi(const char *path, const char *query, char **answer)
{
    const std::string asked = path + (query != nullptr ? std::string("?") + query : "");
    {
        static std::mutex noting; // several threads ask, without the daemon's lock
        std::lock_guard<std::mutex> held(noting);
        platform.calls.push_back(asked);
        if (lock_is_held())
            platform.locked.push_back(asked);
    }
    std::string text = device_list(path, query != nullptr ? query : "");
    for (const std::string &key : {std::string(path), asked})
        if (platform.answers.count(key) != 0)
            text = platform.answers[key];
    bool answers = !text.empty() && !fails("call_cgi") && !fails(path);
    *answer = answers ? strdup(text.c_str()) : nullptr;
    return answers;
}

int get_config_path(char *buf, int size)
{
    if (fails("get_config_path"))
        return -1;
    snprintf(buf, static_cast<size_t>(size), "%s", platform.config_dir.c_str());
    return 0;
}

int save_param(void)
{
    __atomic_add_fetch(&platform.saved, 1, __ATOMIC_RELAXED);
    if (lock_is_held())
        platform.locked.push_back("save_param");
    return 0;
}

struct cJSON *json_load_file(const char *path)
{
    std::ifstream file(path);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    return cJSON_Parse(text.c_str());
}

struct cJSON *json_load_buffer(const char *text)
{
    return cJSON_Parse(text);
}

int nos_hostname_action(struct nos_hostname_cfg *cfg)
{
    ++platform.named;
    home_device *known = known_device(cfg->mac);
    if (known == nullptr || cfg->key != 0 || cfg->action != 4) // to look up by MAC
        return -1;
    snprintf(cfg->s_name, sizeof cfg->s_name, "%s", known->name.c_str());
    return 0;
}

int get_group_by_mac(const unsigned char *mac, int *homeid, int *forkid)
{
    home_device *known = known_device(mac);
    if (known == nullptr || known->group < 0)
        return -1;
    *homeid = 77;
    *forkid = known->group;
    return 0;
}

int new_push_msg(int type, const char *data, unsigned long occur_time)
{
    leaves("push " + std::to_string(type) + " " + std::to_string(occur_time) + " " + data);
    return fails("new_push_msg") ? -7 : 0;
}

int app_info_to_devpush(const struct app_info_sync_st *info, int count)
{
    for (const app_info_sync_st *end = info + count; info < end; ++info)
        leaves("status " + std::to_string(info->app_status) + " app " + std::to_string(info->app_id) + " at " +
               std::to_string(info->timestamp) + " of " + mac_to_text(info->mac) +
               (info->class_type != 0 ? " class " + std::to_string(info->class_type) : ""));
    return 0;
}

unsigned int get_system_uptime(void)
{
    return platform.uptime;
}
}
