// A build without MQTT.
#include "home/mqtt.h"

#include <stdio.h>

mqtt *begin_mqtt(household *, const mqtt_settings &settings)
{
    if (settings.on)
        fputs("appident-home: \"mqtt\" is off: this build has no MQTT\n", stderr);
    return nullptr;
}

void end_mqtt(mqtt *) {}

loop_part mqtt_part(mqtt *)
{
    return {};
}

mqtt_health health_of(const mqtt *)
{
    return {};
}
