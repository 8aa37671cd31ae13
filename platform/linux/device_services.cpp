// call_cgi: the router's web services that the daemon asks, answered from the roster and the catalogue.
#include "igd/igd_lib.h"

#include "common/mac_text.h"
#include "platform/linux/catalogue.h"
#include "platform/linux/device_answer.h"
#include "platform/linux/roster.h"

#include <string.h>

namespace {

constexpr char device_query[] = "mac=";

heap_text one_online_device(const char *mac_text)
{
    unsigned char mac[6];
    roster_device device = {};
    int home = 0;
    roster_look look = roster_unknown_device;
    if (read_mac_text(mac_text, mac))
        look = roster_find(mac, &device, &home);
    if (look == roster_unavailable)
        return nullptr;
    device_answer answer = begin_answer();
    if (look == roster_known_device && device.online)
        add_to_answer(&answer, device.mac, device.role);
    return end_answer(&answer);
}

heap_text online_devices(const char *query)
{
    constexpr size_t prefix = sizeof(device_query) - 1;
    return query && strncmp(query, device_query, prefix) == 0 ? one_online_device(query + prefix) : roster_list(true);
}

heap_text offline_devices(const char *)
{
    return roster_list(false);
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
