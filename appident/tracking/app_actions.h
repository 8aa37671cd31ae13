// Application events of the kernel engine: payment apps seen on a device. Takes the lock.
#ifndef APPIDENT_TRACKING_APP_ACTIONS_H
#define APPIDENT_TRACKING_APP_ACTIONS_H

#include "igd/igd_types.h"

// action 0 = seen, 2 = no longer seen; app_id is the packed word, mac six bytes, ip in network order.
void handle_app_action(int action, u32 app_id, u32 ruleid, const unsigned char *mac, u32 ip);

#endif
