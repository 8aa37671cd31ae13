// The five classes that use-time limits are about. A class of the catalogue (small) counts towards one of them or none.
#ifndef PLATFORM_LINUX_CLIENT_LIMIT_CLASSES_H
#define PLATFORM_LINUX_CLIENT_LIMIT_CLASSES_H

#include "igd/igd_types.h"

struct limit_class {
    u32 class_type;
    const char *name;
    const char *meaning;
    bool by_minutes; // its minutes matter
    bool by_app;     // only apps of its list count
};
constexpr limit_class limit_classes[] = {
    {1, "games", "use of the day", true, true},
    {2, "video and social", "use of the day", true, true},
    {3, "everything else", "use of the day", true, true},
    {4, "learning", "told at first use", false, true},
    {5, "eye protection", "one session of any app", true, false},
};

// 0 for a small class that no limit covers.
constexpr u32 limit_class_of(u32 small_class)
{
    // By small class; 11, 12 and those beyond belong to no limit.
    constexpr unsigned char classes[] = {0, 1, 3, 2, 2, 2, 3, 3, 3, 3, 4, 0, 0, 3, 3};
    return small_class < sizeof(classes) ? classes[small_class] : 0;
}

// "games", or "-" for none.
constexpr const char *class_name(u32 class_type)
{
    for (const limit_class &one : limit_classes)
        if (one.class_type == class_type)
            return one.name;
    return "-";
}

#endif
