#include "platform/linux/devices.h"

#include "platform/linux/client/settings.h"
#include "platform/linux/observed.h"
#include "platform/linux/observed_file.h"
#include "platform/linux/presence.h"
#include "platform/linux/roster.h"

#include <string.h>

namespace {

void take_written(const roster_device &written, known_device *out)
{
    out->role_given = written.role != role_none;
    if (out->role_given)
        out->role = written.role;
    out->group = written.group;
    if (*written.name) {
        out->name_from = name_of_person;
        copy_device_name(written.name, out->name);
    }
    if (written.presence != presence_observed)
        out->on_line = written.presence == presence_on;
}

void take_observed(const observed_device &seen, known_device *out)
{
    out->ip = seen.ip;
    out->ip6 = seen.ip6;
    out->on_line = seen.on_line;
    out->away = presence_away(seen);
    out->on_line_since = seen.on_line ? epoch_of(seen.on_line_since) : 0;
    out->last_seen = observed_last_seen(seen);
    if (*seen.lease) {
        out->name_from = name_of_lease;
        copy_device_name(seen.lease, out->name);
    }
}

// The device of the lower MAC, from what is written and what was seen of it; each may be missing. False for neither.
bool compose(const roster_device *written, const observed_device *seen, known_device *out)
{
    if (!written && !seen)
        return false;
    int order = !written ? 1 : !seen ? -1 : memcmp(written->mac, seen->mac, sizeof(written->mac));
    *out = {};
    memcpy(out->mac, order <= 0 ? written->mac : seen->mac, sizeof(out->mac));
    out->role = settings().default_role;
    out->group = -1;
    out->name_from = name_of_nobody;
    write_nameless(out->mac, out->name);
    if (order >= 0)
        take_observed(*seen, out);
    if (order <= 0)
        take_written(*written, out);
    return true;
}

} // namespace

bool devices_available()
{
    observed_load();
    return roster_look() != roster_unavailable;
}

bool device_find(const unsigned char *mac, known_device *out)
{
    mutex_guard held(observed_lock);
    roster_device written;
    bool listed = roster_find(mac, &written);
    return compose(listed ? &written : nullptr, observed_find(mac), out);
}

bool device_next(const unsigned char *after, known_device *out)
{
    mutex_guard held(observed_lock);
    roster_device written;
    bool listed = roster_next(after, &written);
    return compose(listed ? &written : nullptr, observed_next(after), out);
}
