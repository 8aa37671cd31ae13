// The face of the tracking subsystem, for main and for outsiders: brings every room. The rooms include only what they use.
#ifndef APPIDENT_APP_IDENT_H
#define APPIDENT_APP_IDENT_H

#include "appident/app_actions.h"
#include "appident/app_hits.h"
#include "appident/config_file.h"
#include "appident/current_apps.h"
#include "appident/device_registry.h"
#include "appident/device_service.h"
#include "appident/dump.h"
#include "appident/event_loop.h"
#include "appident/offline.h"
#include "appident/payment.h"
#include "appident/payment_settings.h"
#include "appident/push_alerts.h"
#include "appident/push_channel.h"
#include "appident/push_history.h"
#include "appident/push_presence.h"
#include "appident/records.h"
#include "appident/requests.h"
#include "appident/rule_list.h"
#include "appident/settings_requests.h"
#include "appident/tick.h"
#include "appident/use_time_limits.h"

// Waits 20 seconds for the router's services, builds the device list and starts the threads. -1 when one does not start.
int app_ident_init(void);
// Returns at once: pushes go out directly, nothing is queued.
void *process_my_push_list_thread(void *arg);

#endif
