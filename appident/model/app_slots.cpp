#include "appident/model/app_slots.h"

#include "appident/model/device_list.h"

namespace {

// A hash table of slots, plus 1, in which an app stands at one of four places.
constexpr u32 places = 256;
constexpr u32 places_of_an_app = 4;

struct device_guesses {
    uint8_t app_slot[places];
    uint8_t axis_slot; // last known holder of the time axis
};
static_assert(apps_per_device < UINT8_MAX, "a slot fits a guess");
device_guesses all_guesses[most_indexed_devices];

device_guesses *guesses_of(const device_record *dev)
{
    int number = device_number(dev);
    return number < 0 ? nullptr : &all_guesses[number];
}

u32 home_of(u32 app_id)
{
    return app_id ^ app_id >> 8;
}

// -1 when no guess is right.
int guess_slot(const device_record *dev, const device_guesses &known, u32 app_id)
{
    u32 home = home_of(app_id);
    for (u32 step = 0; step < places_of_an_app; step++) {
        int slot = known.app_slot[(home + step) % places] - 1;
        if (slot >= 0 && dev->apps[slot].app_id == app_id)
            return slot;
    }
    return -1;
}

// Takes a place that no app needs: a free one, or one whose slot holds an app by now that does not stand there.
void keep_guess(const device_record *dev, device_guesses &known, int slot)
{
    u32 home = home_of(dev->apps[slot].app_id), chosen = home;
    for (u32 step = 0; step < places_of_an_app; step++) {
        u32 place = home + step;
        int guessed = known.app_slot[place % places] - 1;
        if (guessed < 0 || (place - home_of(dev->apps[guessed].app_id)) % places >= places_of_an_app) {
            chosen = place;
            break;
        }
    }
    known.app_slot[chosen % places] = static_cast<uint8_t>(slot + 1);
}

bool holds_axis(const device_record *dev, int slot)
{
    return dev->apps[slot].app_id != 0 && dev->apps[slot].time_axis_app_state == APP_USING;
}

} // namespace

int find_app_slot(device_record *dev, u32 app_id, int *free_slot)
{
    *free_slot = -1;
    device_guesses *known = guesses_of(dev);
    int guessed = known ? guess_slot(dev, *known, app_id) : -1;
    if (guessed >= 0)
        return guessed;
    for (int slot = 0; slot < apps_per_device; slot++) {
        u32 held = dev->apps[slot].app_id;
        if (held == app_id) {
            if (known)
                keep_guess(dev, *known, slot);
            return slot;
        }
        if (held == 0 && *free_slot < 0)
            *free_slot = slot;
    }
    return -1;
}

void note_app_slot(device_record *dev, int slot)
{
    if (device_guesses *known = guesses_of(dev))
        keep_guess(dev, *known, slot);
}

int find_time_axis_holder(device_record *dev, int besides)
{
    device_guesses *known = guesses_of(dev);
    if (known && known->axis_slot != besides && holds_axis(dev, known->axis_slot))
        return known->axis_slot;
    for (int i = 0; i < apps_per_device; i++) {
        if (i == besides || !holds_axis(dev, i))
            continue;
        if (known)
            known->axis_slot = static_cast<uint8_t>(i);
        return i;
    }
    return -1;
}
