// Who is on line: made of what the kernel tells of neighbours, by asking it about those that fell silent.
//
// A device is on line from the moment it is heard of until offline_after of silence, as going off line ends what its limits
// have counted; it is away sooner. The daemon is told by host messages. All but presence_away on the neighbours' thread.
#ifndef PLATFORM_LINUX_PRESENCE_H
#define PLATFORM_LINUX_PRESENCE_H

#include "platform/linux/lan_neighbour.h"
#include "platform/linux/observed.h"

// One message of the kernel; `listed` when it stands in the answer to a question for the whole table, which says nothing about
// when the neighbour was heard of. The round numbers these answers.
void presence_take(const lan_neighbour &neighbour, bool listed, u32 round);
// The whole table has been told: what was not in it is in doubt.
void presence_sweep(u32 round);
// About once a second.
void presence_tick();

// Silent for a while, and not for so long that it counts as off line. With observed_lock held.
bool presence_away(const observed_device &device);

#endif
