#include "platform/linux/lan_fitness.h"

#include <string.h>

namespace {

// A VLAN of a bridge of a VLAN of a bond of hardware.
constexpr int deepest = 4;

// The customary one without an address comes last, and first once it has it.
enum { fitness_of_nothing = 0, fitness_without_address = 1, fitness_by_address = 2, fitness_by_custom = 10 };
constexpr int for_a_bridge = 1, for_hardware = 2;

bool is_kind(const lan_link &link, const char *kind)
{
    return strcmp(link.kind, kind) == 0;
}

// No software made it, or it is on top of such a link: as a VLAN of it, or as the bridge or bond of which it is a port.
bool leads_to_hardware(const lan_link *links, size_t count, const lan_link &link, int depth)
{
    if (is_kind(link, "") || is_kind(link, "dsa"))
        return true;
    for (const lan_link *below = links; depth > 0 && below != links + count; ++below)
        if ((below->master == link.index || below->index == link.carrier) && leads_to_hardware(links, count, *below, depth - 1))
            return true;
    return false;
}

int fitness_of(const lan_link *links, size_t count, const lan_link &link)
{
    if (strcmp(link.name, customary_lan) == 0)
        return link.has_address ? fitness_by_custom : fitness_without_address;
    if (!link.may_be_lan)
        return fitness_of_nothing;
    return fitness_by_address + (is_kind(link, "bridge") ? for_a_bridge : 0) +
           (leads_to_hardware(links, count, link, deepest) ? for_hardware : 0);
}

} // namespace

const lan_link *fittest_lan(const lan_link *links, size_t count, int *fitness)
{
    const lan_link *best = nullptr;
    *fitness = fitness_of_nothing;
    for (const lan_link *link = links; link != links + count; ++link) {
        int here = fitness_of(links, count, *link);
        if (here <= *fitness)
            continue;
        *fitness = here;
        best = link;
    }
    return best;
}
