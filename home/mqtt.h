// MQTT: the household's devices for home automation, its alerts as events, and each push, all to one broker.
//
//   PREFIX/ID/availability              "online", or "offline" by our last will
//   PREFIX/ID/push                      each line of the spool
//   PREFIX/ID/MAC/state, /limits        what entities show, retained
//   PREFIX/ID/MAC/alert                 an event, never retained
//   PREFIX/ID/MAC/limits/CLASS/minutes/set, .../on/set     changes a limit, where the owner allows that
//   DISCOVERY_PREFIX/device/appident_MAC/config            what entities there are, retained
#ifndef HOME_MQTT_H
#define HOME_MQTT_H

#include "home/loop.h"
#include "home/notice_settings.h"

#include <string>

struct household;
struct mqtt;

// Null when it is off, or this build has none, which is said on standard error.
mqtt *begin_mqtt(household *home, const mqtt_settings &settings);
void end_mqtt(mqtt *all);
loop_part mqtt_part(mqtt *all);

struct mqtt_health {
    bool up;
    int64_t pushes_passed_on; // acknowledged by the broker since the start
    int64_t pushes_waiting;   // given to the broker and not acknowledged
    int64_t breaks;           // times that pushes were gone from the spool before the broker took them
};
mqtt_health health_of(const mqtt *all);

#endif
