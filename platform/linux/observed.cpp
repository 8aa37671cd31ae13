#include "platform/linux/observed.h"

#include "platform/linux/platform_counters.h"
#include "platform/linux/roster.h"

#include <string.h>

pthread_mutex_t observed_lock = PTHREAD_MUTEX_INITIALIZER;

namespace {

observed_device devices[observed_most];
int count = 0;

constexpr int farewells_most = 128;
unsigned char farewells[farewells_most][6];
int farewell_count = 0;

int place_of(const unsigned char *mac, bool *found)
{
    int low = 0, high = count;
    *found = false;
    while (low < high) {
        int middle = (low + high) / 2;
        int order = memcmp(devices[middle].mac, mac, sizeof(observed_device::mac));
        *found = *found || order == 0;
        if (order < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

bool must_stay(const observed_device &device)
{
    roster_device written;
    return (device.told != told_off_line && farewell_count == farewells_most) || roster_find(device.mac, &written);
}

// Nameless ones before named ones, of these whoever was silent longest.
bool goes_before(const observed_device &one, const observed_device &other)
{
    if (!*one.lease != !*other.lease)
        return !*one.lease;
    if (one.heard_now != other.heard_now)
        return !one.heard_now;
    return one.heard_now ? one.heard < other.heard : one.seen_before < other.seen_before;
}

void remove_at(int place)
{
    if (devices[place].told != told_off_line)
        memcpy(farewells[farewell_count++], devices[place].mac, sizeof(farewells[0]));
    --count;
    memmove(devices + place, devices + place + 1, static_cast<size_t>(count - place) * sizeof(devices[0]));
}

bool make_room()
{
    int goes = -1;
    for (int i = 0; i < count; ++i)
        if ((goes < 0 || goes_before(devices[i], devices[goes])) && !must_stay(devices[i]))
            goes = i;
    count_platform(goes < 0 ? platform_devices_refused : platform_devices_forgotten);
    if (goes >= 0)
        remove_at(goes);
    return goes >= 0;
}

} // namespace

u64 uptime_second()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<u64>(now.tv_sec);
}

int observed_count()
{
    return count;
}

observed_device *observed_at(int place)
{
    return &devices[place];
}

observed_device *observed_find(const unsigned char *mac)
{
    bool found = false;
    int place = place_of(mac, &found);
    return found ? &devices[place] : nullptr;
}

observed_device *observed_next(const unsigned char *after)
{
    bool found = false;
    int place = after ? place_of(after, &found) : 0;
    place += found ? 1 : 0;
    return place < count ? &devices[place] : nullptr;
}

observed_device *observed_make(const unsigned char *mac)
{
    if (observed_device *known = observed_find(mac))
        return known;
    if (count == observed_most && !make_room())
        return nullptr;
    bool found = false;
    int place = place_of(mac, &found);
    memmove(devices + place + 1, devices + place, static_cast<size_t>(count - place) * sizeof(devices[0]));
    ++count;
    devices[place] = {};
    memcpy(devices[place].mac, mac, sizeof(devices[place].mac));
    devices[place].told = told_off_line;
    devices[place].unresolved = true;
    return &devices[place];
}

bool observed_farewell(unsigned char *mac)
{
    if (farewell_count == 0)
        return false;
    memcpy(mac, farewells[farewell_count - 1], sizeof(farewells[0]));
    return true;
}

void observed_farewell_done()
{
    --farewell_count;
}

time_t epoch_of(u64 moment)
{
    return time(nullptr) - static_cast<time_t>(uptime_second() - moment);
}

time_t observed_last_seen(const observed_device &device)
{
    return device.heard_now ? epoch_of(device.heard) : device.seen_before;
}
