// Names and family groups of devices, from the roster.
#include "igd/igd_lib.h"

#include "platform/linux/roster.h"

#include <stdio.h>

int nos_hostname_action(struct nos_hostname_cfg *cfg)
{
    roster_device device;
    int home = 0;
    if (!cfg || roster_find(cfg->mac, &device, &home) != roster_known_device)
        return -1;
    snprintf(cfg->name, sizeof(cfg->name), "%s", device.name);
    snprintf(cfg->s_name, sizeof(cfg->s_name), "%s", device.name);
    return 0;
}

int get_group_by_mac(const unsigned char *mac, int *homeid, int *forkid)
{
    roster_device device;
    int home = 0;
    if (!mac || !homeid || !forkid || roster_find(mac, &device, &home) != roster_known_device || device.group < 0)
        return -1;
    *homeid = home;
    *forkid = device.group;
    return 0;
}
