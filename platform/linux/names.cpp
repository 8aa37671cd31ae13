// Names and family groups of devices.
#include "igd/igd_lib.h"

#include "platform/linux/devices.h"
#include "platform/linux/roster.h"

#include <stdio.h>

namespace {

bool find(const unsigned char *mac, known_device *out)
{
    return devices_available() && device_find(mac, out);
}

} // namespace

int nos_hostname_action(struct nos_hostname_cfg *cfg)
{
    known_device device;
    if (!cfg || !find(cfg->mac, &device))
        return -1;
    snprintf(cfg->name, sizeof(cfg->name), "%s", device.name);
    snprintf(cfg->s_name, sizeof(cfg->s_name), "%s", device.name);
    return 0;
}

int get_group_by_mac(const unsigned char *mac, int *homeid, int *forkid)
{
    known_device device;
    if (!mac || !homeid || !forkid || !find(mac, &device) || device.group < 0)
        return -1;
    *homeid = roster_home();
    *forkid = device.group;
    return 0;
}
