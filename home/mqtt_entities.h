// The household's devices as home automation sees them: one configuration and one state for each device, both retained by the
// broker, sent again when they change, when the broker comes back, and when home automation starts.
#ifndef HOME_MQTT_ENTITIES_H
#define HOME_MQTT_ENTITIES_H

#include "home/mqtt_link.h"

#include <map>

struct household;

// What the broker has of a device: digests of the texts, 0 for none.
struct told_device {
    size_t configuration = 0, state = 0, limits = 0;
};

struct mqtt_entities {
    household *home = nullptr;
    mqtt_link *link = nullptr;
    const mqtt_settings *settings = nullptr;
    std::string base;                        // of our topics
    std::map<std::string, told_device> told; // by MAC
    bool wanted = true;                      // something may have changed
    int64_t next_ms = 0;
};

void begin_entities(mqtt_entities *entities, household *home, mqtt_link *link, const mqtt_settings *settings,
                    const std::string &base);
// Nothing of what the broker had is there any more, or nobody has read it.
void tell_all_again(mqtt_entities *entities);
// The broker holds the state of this device, perhaps since before our start.
void note_told(mqtt_entities *entities, const std::string &mac);
// Sends what has changed, as long as not too much waits for the broker.
void send_entities(mqtt_entities *entities, int64_t now_ms);

#endif
