#include "platform/linux/presence.h"

#include "common/guards.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/host_messages.h"
#include "platform/linux/lease_names.h"
#include "platform/linux/observed_file.h"
#include "platform/linux/probes.h"
#include "platform/linux/roster.h"

#include <string.h>

namespace {

// Seconds. The kernel finds out within 8.
constexpr u64 probe_every = 30;
constexpr u64 probe_absent_every = 120;
constexpr u64 away_after = 90;
constexpr u64 absent_after = 300;
constexpr u64 try_every = 10;
constexpr int tries_at_start = 3;
constexpr u64 leases_every = 5;
// In one pass, so that a crowd neither floods the LAN nor the daemon.
constexpr int probes_at_once = 32;
constexpr int messages_at_once = 64;

int probe_place = 0;
u64 leases_read = 0;
bool newcomers = false;

bool is_certain(const observed_device &device)
{
    return device.confirmed || device.confirmed6;
}

void heard(observed_device *device, u64 now)
{
    device->heard_now = true;
    device->heard = now;
    if (device->on_line)
        return;
    device->on_line = true;
    device->on_line_since = now;
}

bool is_at6(const observed_device &device, const in6_addr &ip6)
{
    return memcmp(&device.ip6, &ip6, sizeof(ip6)) == 0;
}

// Nobody else is at the address of `holder` (null: nobody at all).
void release_address(const lan_neighbour &neighbour, const observed_device *holder)
{
    for (int i = 0; i < observed_count(); ++i) {
        observed_device *device = observed_at(i);
        if (device == holder)
            continue;
        if (neighbour.ip == 0) {
            device->confirmed6 = device->confirmed6 && !is_at6(*device, neighbour.ip6);
        } else if (device->ip == neighbour.ip) {
            device->confirmed = false;
            device->unresolved = true;
        }
    }
}

void move_to(observed_device *device, u32 ip)
{
    if (device->ip != ip)
        observed_file_news();
    device->ip = ip;
    device->unresolved = false;
}

// What the kernel only remembers. Where it is news, the device has just made itself known, by ARP.
void take_unconfirmed(observed_device *device, const lan_neighbour &neighbour, bool listed, u64 now)
{
    if (device->ip == neighbour.ip && !device->unresolved) {
        device->confirmed = false;
        return;
    }
    if (device->confirmed)
        return;
    move_to(device, neighbour.ip);
    if (!listed)
        heard(device, now);
    else if (!device->on_line)
        device->tries = tries_at_start;
}

// A device has several addresses of IPv6, each for a while: followed is the one that the kernel was certain of last.
void take_ip6(observed_device *device, const lan_neighbour &neighbour, bool listed, u64 now)
{
    if (!neighbour.confirmed && is_at6(*device, neighbour.ip6)) {
        device->confirmed6 = false;
        return;
    }
    if (!neighbour.confirmed && device->confirmed6)
        return;
    bool first = IN6_IS_ADDR_UNSPECIFIED(&device->ip6);
    device->ip6 = neighbour.ip6;
    device->confirmed6 = neighbour.confirmed;
    if (neighbour.confirmed || (first && !listed)) // it has just made itself known
        heard(device, now);
    else if (!device->on_line)
        device->tries = tries_at_start;
}

bool probe_due(observed_device *device, u64 now)
{
    if (is_certain(*device) || (device->ip == 0 && IN6_IS_ADDR_UNSPECIFIED(&device->ip6)))
        return false;
    u64 silence = now - device->heard, since = now - device->probed;
    if (device->on_line)
        return since >= (silence < absent_after ? probe_every : probe_absent_every) && silence > 0;
    if (device->tries == 0 || (device->probed != 0 && since < try_every))
        return false;
    --device->tries;
    return true;
}

void probe_silent_ones(u64 now)
{
    int probes = 0;
    for (int looked = 0; looked < observed_count() && probes < probes_at_once; ++looked) {
        probe_place = (probe_place + 1) % observed_count();
        observed_device *device = observed_at(probe_place);
        if (!probe_due(device, now))
            continue;
        device->probed = now;
        probe_neighbour(*device);
        ++probes;
    }
}

void age(observed_device *device, u64 now)
{
    if (is_certain(*device))
        device->heard = now;
    if (device->on_line && now - device->heard >= settings().offline_after)
        device->on_line = false;
}

// The role with which the daemon should know the device, told_off_line, or role_unclear to leave things as they are.
int role_to_tell(const observed_device &device, roster_state state)
{
    roster_device written;
    bool listed = roster_find(device.mac, &written);
    // Who fixes the presence by hand has other means to tell the daemon of it.
    if (state == roster_unavailable || (listed && written.presence != presence_observed))
        return role_unclear;
    if (!device.on_line)
        return told_off_line;
    int role = listed && written.role != role_none ? written.role : settings().default_role;
    // The daemon tracks no device of role 0: it need not hear of one that it does not know.
    return role == 0 && device.told == told_off_line ? role_unclear : role;
}

void tell(observed_device *device, roster_state state, int *budget)
{
    int role = role_to_tell(*device, state);
    if (role == role_unclear || role == device->told || *budget == 0)
        return;
    --*budget;
    bool done = role == told_off_line ? tell_off_line(device->mac, device->ip) : tell_on_line(device->mac, device->ip);
    if (done)
        device->told = role;
    else
        *budget = 0;
}

void say_farewells(int *budget)
{
    unsigned char mac[6];
    while (*budget > 0 && observed_farewell(mac)) {
        bool done = tell_off_line(mac, 0);
        if (done)
            observed_farewell_done();
        *budget = done ? *budget - 1 : 0;
    }
}

void take_lease(const unsigned char *mac, const char *name)
{
    mutex_guard held(observed_lock);
    observed_device *device = observed_find(mac);
    if (!device || strcmp(device->lease, name) == 0)
        return;
    copy_device_name(name, device->lease);
    observed_file_news();
}

void name_by_leases(u64 now)
{
    if (leases_read != 0 && now - leases_read < leases_every)
        return;
    leases_read = now;
    bool anew = newcomers;
    newcomers = false;
    read_leases(anew, take_lease);
}

} // namespace

void presence_take(const lan_neighbour &neighbour, bool listed, u32 round)
{
    u64 now = uptime_second();
    mutex_guard held(observed_lock);
    if (!neighbour.usable)
        return release_address(neighbour, nullptr);
    bool known = observed_find(neighbour.mac) != nullptr;
    observed_device *device = observed_make(neighbour.mac);
    release_address(neighbour, device);
    if (!device)
        return;
    if (!known) {
        newcomers = true;
        observed_file_news();
    }
    if (neighbour.ip == 0) {
        device->round6 = round;
        return take_ip6(device, neighbour, listed, now);
    }
    device->round = round;
    if (neighbour.confirmed) {
        move_to(device, neighbour.ip);
        device->confirmed = true;
        heard(device, now);
    } else {
        take_unconfirmed(device, neighbour, listed, now);
    }
}

void presence_sweep(u32 round)
{
    mutex_guard held(observed_lock);
    for (int i = 0; i < observed_count(); ++i) {
        observed_device *device = observed_at(i);
        device->confirmed = device->confirmed && device->round == round;
        device->confirmed6 = device->confirmed6 && device->round6 == round;
    }
}

void presence_tick()
{
    u64 now = uptime_second();
    name_by_leases(now);
    roster_state state = roster_look();
    {
        mutex_guard held(observed_lock);
        int budget = messages_at_once;
        say_farewells(&budget);
        for (int i = 0; i < observed_count(); ++i) {
            age(observed_at(i), now);
            tell(observed_at(i), state, &budget);
        }
        probe_silent_ones(now);
    }
    observed_save_when_due(now);
}

bool presence_away(const observed_device &device)
{
    return device.on_line && !is_certain(device) && uptime_second() - device.heard >= away_after;
}
