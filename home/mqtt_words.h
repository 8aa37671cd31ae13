// What topics and entities call things.
#ifndef HOME_MQTT_WORDS_H
#define HOME_MQTT_WORDS_H

#include "igd/igd_types.h"

// The classes of limits: their keys in topics and states, and whether they have minutes of a day.
struct mqtt_class {
    u32 number;
    const char *key, *name;
    bool has_minutes;
};
constexpr mqtt_class mqtt_classes[] = {
    {1, "games", "Games", true},
    {2, "video_social", "Video and social", true},
    {3, "other", "Everything else", true},
    {4, "learning", "Learning", false},
};

#endif
