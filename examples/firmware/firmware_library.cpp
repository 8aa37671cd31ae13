// A firmware's platform library, as small as it can be: a household of 64 devices with fixed addresses.
//
// What a firmware gets from its kernel and its services comes here from sockets and files below /tmp:
//   .appident.ipc        requests, one a connection: "ID TEXT\n", answered with the result's text
//   firmware.events      datagrams as the kernel's messaging channel sends them
//   firmware.pushes      every push, one a line
#include "igd/igd_lib.h"

#include <arpa/inet.h>
#include <cjson/cJSON.h>
#include <netlink/socket.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr unsigned device_count = 64;
constexpr unsigned first_host = 100; // device N has the address 192.168.1.(100 + N)
constexpr size_t answer_room = 8192;

int server_fd = -1;
ipc_handler serve_request;

int open_unix_socket(const char *path, int type)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s", path);
    int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    unlink(path);
    if (fd >= 0 && bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// The text must have room for 18 bytes.
void device_mac(unsigned device, char *text)
{
    snprintf(text, 18, "02-00-00-00-00-%02X", device);
}

// The device service's answer, for one MAC or for all (wanted null).
char *device_list(const char *wanted)
{
    cJSON *root = cJSON_CreateObject();
    cJSON_AddStringToObject(root, "err_no", "0");
    cJSON *data = cJSON_AddArrayToObject(root, "data");
    for (unsigned device = 1; device <= device_count; device++) {
        char mac[18];
        device_mac(device, mac);
        if (wanted && strcmp(mac, wanted) != 0)
            continue;
        cJSON *entry = cJSON_CreateObject();
        cJSON_AddStringToObject(entry, "mac", mac);
        cJSON_AddStringToObject(entry, "role", "1");
        cJSON_AddItemToArray(data, entry);
    }
    char *text = cJSON_PrintUnformatted(root);
    cJSON_Delete(root);
    return text;
}

void answer_client(int client)
{
    char request[512];
    ssize_t length = read(client, request, sizeof(request) - 1);
    if (length <= 0)
        return;
    request[length] = '\0';
    request[strcspn(request, "\n")] = '\0';
    char *text = nullptr;
    unsigned id = static_cast<unsigned>(strtoul(request, &text, 10));
    bool asks_for_text = (id >= 6 && id <= 9) || id == 12;
    if (!asks_for_text || *text != ' ')
        return;
    static char answer[answer_room];
    answer[0] = '\0';
    u32 room = sizeof(answer);
    if (serve_request(id, answer, text + 1, &room) == 0)
        dprintf(client, "%s", answer);
}

} // namespace

extern "C" {

int nt_ipcserver_init2(const char *path, ipc_handler handler)
{
    serve_request = handler;
    server_fd = open_unix_socket(path, SOCK_STREAM);
    if (server_fd >= 0)
        listen(server_fd, 8);
    return server_fd;
}

int ipc_server_accept2(void)
{
    int client = accept(server_fd, nullptr, nullptr);
    if (client < 0)
        return -1;
    answer_client(client);
    return close(client);
}

int __nlk_msg_init(struct igd_netlink_handler *h, int, int, int)
{
    h->sock_fd = open_unix_socket("/tmp/firmware.events", SOCK_DGRAM);
    return h->sock_fd < 0 ? -1 : 0;
}

int nlk_msg_recv(struct igd_netlink_handler *h, void *buf, int len)
{
    return static_cast<int>(recv(h->sock_fd, buf, static_cast<size_t>(len), 0));
}

struct nl_sock *nltool_alloc_handle(void)
{
    nl_sock *handle = nl_socket_alloc();
    if (handle)
        nl_socket_disable_seq_check(handle); // multicast messages follow no request
    return handle;
}

int get_lan_config(struct nos_lan_cfg *cfg)
{
    *cfg = {{2, 0, 0, 0, 1, 0}, inet_addr("192.168.1.1"), inet_addr("255.255.255.0")};
    return 0;
}

int get_mac_by_ip(uint32_t ip, unsigned char *mac)
{
    unsigned host = ntohl(ip) & 0xFF;
    if (host <= first_host || host > first_host + device_count)
        return -1;
    const unsigned char found[6] = {2, 0, 0, 0, 0, static_cast<unsigned char>(host - first_host)};
    memcpy(mac, found, sizeof(found));
    return 0;
}

int call_cgi(const char *path, const char *query, char **answer)
{
    *answer = nullptr;
    if (strcmp(path, "/app/devices/webs/getdeviceslist.cgi") == 0)
        *answer = device_list(query && strncmp(query, "mac=", 4) == 0 ? query + 4 : nullptr);
    return *answer != nullptr;
}

int get_config_path(char *buf, int size)
{
    return snprintf(buf, static_cast<size_t>(size), "/tmp/firmware-") < size ? 0 : -1;
}

int save_param(void)
{
    return 0;
}

struct cJSON *json_load_file(const char *path)
{
    FILE *file = fopen(path, "re");
    if (!file)
        return nullptr;
    static char text[answer_room];
    size_t length = fread(text, 1, sizeof(text) - 1, file);
    fclose(file);
    text[length] = '\0';
    return cJSON_Parse(text);
}

struct cJSON *json_load_buffer(const char *text)
{
    return cJSON_Parse(text);
}

int nos_hostname_action(struct nos_hostname_cfg *cfg)
{
    snprintf(cfg->name, sizeof(cfg->name), "device-%u", cfg->mac[5]);
    return 0;
}

int get_group_by_mac(const unsigned char *, int *, int *)
{
    return -1;
}

int new_push_msg(int type, const char *data, unsigned long occur_time)
{
    FILE *pushes = fopen("/tmp/firmware.pushes", "ae");
    if (!pushes)
        return -1;
    fprintf(pushes, "%d %lu %s\n", type, occur_time, data);
    return fclose(pushes);
}

int app_info_to_devpush(const struct app_info_sync_st *, int)
{
    return 0;
}

unsigned int get_system_uptime(void)
{
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<unsigned>(now.tv_sec);
}
}
