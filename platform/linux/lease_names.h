// Names that devices gave their DHCP server, from its file of leases: that of each known server, and the settings' "leases".
#ifndef PLATFORM_LINUX_LEASE_NAMES_H
#define PLATFORM_LINUX_LEASE_NAMES_H

#include "platform/linux/device_name.h"

// Called for each lease with a usable name.
using lease_reader = void (*)(const unsigned char *mac, const char *name);

// Reads all files when one of them changed since the last call, or when told to; false when nothing was read. One thread only.
bool read_leases(bool anew, lease_reader take);

#endif
