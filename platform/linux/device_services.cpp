// call_cgi: the router's web services that the daemon asks, answered from the household's devices and the catalogue.
//
// A device whose role is unclear is left out: a role that cannot be told must never pass for 0, which deletes settings.
#include "igd/igd_lib.h"

#include "common/mac_text.h"
#include "platform/linux/catalogue.h"
#include "platform/linux/device_answer.h"
#include "platform/linux/devices.h"
#include "platform/linux/roster.h"

#include <string.h>

namespace {

constexpr char device_query[] = "mac=";

void add_if(device_answer *answer, const known_device &device, bool on_line)
{
    if (device.on_line == on_line && device.role != role_unclear)
        add_to_answer(answer, device.mac, device.role);
}

heap_text one_online_device(const char *mac_text)
{
    unsigned char mac[6];
    known_device device;
    device_answer answer = begin_answer();
    if (read_mac_text(mac_text, mac) && device_find(mac, &device))
        add_if(&answer, device, true);
    return end_answer(&answer);
}

heap_text all_devices(bool on_line)
{
    device_answer answer = begin_answer();
    known_device device = {};
    for (const unsigned char *after = nullptr; device_next(after, &device); after = device.mac)
        add_if(&answer, device, on_line);
    return end_answer(&answer);
}

heap_text online_devices(const char *query)
{
    constexpr size_t prefix = sizeof(device_query) - 1;
    if (!devices_available())
        return nullptr;
    return query && strncmp(query, device_query, prefix) == 0 ? one_online_device(query + prefix) : all_devices(true);
}

heap_text offline_devices(const char *)
{
    return devices_available() ? all_devices(false) : nullptr;
}

heap_text user_apps(const char *)
{
    return catalogue_answer();
}

constexpr struct {
    const char *path;
    heap_text (*answer)(const char *query);
} services[] = {
    {"/app/devices/webs/getdeviceslist.cgi", online_devices},
    {"/app/devices/webs/get_offline_dev_list.cgi", offline_devices},
    {"/app/ib_manager/webs/get_user_apps.cgi", user_apps},
};

} // namespace

int call_cgi(const char *path, const char *query, char **answer)
{
    if (!path || !answer)
        return 0;
    *answer = nullptr;
    for (const auto &service : services)
        if (strcmp(service.path, path) == 0)
            *answer = service.answer(query).release();
    return *answer ? 1 : 0;
}
