// Brings every declaration of the daemon, for code outside it. No source of the daemon includes this: each includes what it
// uses.
#ifndef APPIDENT_APP_IDENT_H
#define APPIDENT_APP_IDENT_H

#include "appident/event_loop.h"
#include "appident/model/records.h"
#include "appident/model/rule_list.h"
#include "appident/pushes/payment.h"
#include "appident/pushes/push_alerts.h"
#include "appident/pushes/push_channel.h"
#include "appident/pushes/push_history.h"
#include "appident/pushes/push_presence.h"
#include "appident/requests/current_apps.h"
#include "appident/requests/requests.h"
#include "appident/requests/settings_requests.h"
#include "appident/router/device_service.h"
#include "appident/settings/config_file.h"
#include "appident/settings/payment_settings.h"
#include "appident/settings/use_time_limits.h"
#include "appident/startup.h"
#include "appident/tracking/app_actions.h"
#include "appident/tracking/app_hits.h"
#include "appident/tracking/device_registry.h"
#include "appident/tracking/dump.h"
#include "appident/tracking/offline.h"
#include "appident/tracking/sessions.h"
#include "appident/tracking/tick.h"

#endif
