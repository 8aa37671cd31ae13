// The tracked devices: the list device_apps_head, the links of its records, and the look-up of a device by its MAC. The lock is
// held.
//
// The list is the truth. An index beside it finds a MAC in constant time, whatever the number of devices. Others may link and
// unlink records with the operations of linux_list.h and may change a record's MAC: each look-up checks the ends of the list,
// the number of removals and the MAC of what it found. A MAC that the index does not have is looked for in the list once; it
// then counts as absent until a record is linked or unlinked or forget_absent_devices is called. A record must not be freed
// while it is linked.
//
// Rejected: links in the records (their layout is fixed); a walk of the list for each hit (records are 29 KB apart, so each
// step costs a cache line and a page).
#ifndef APPIDENT_MODEL_DEVICE_LIST_H
#define APPIDENT_MODEL_DEVICE_LIST_H

#include "appident/model/records.h"

// Devices that the index holds; those beyond are found by walking the list.
constexpr u32 most_indexed_devices = 1024;

// First record of the list with that MAC, or null: by its text, or by its six bytes.
device_record *tracked_device(const char *mac_str);
device_record *tracked_device(const unsigned char *mac);
// The next record of the list behind this one with the same MAC, or null. A start-up list may name a device twice.
device_record *next_of_same_mac(device_record *rec);

// Links a record at the tail; unlinks one and frees it with all it holds.
void link_device(device_record *rec);
void remove_device(device_record *rec);
// MACs that were not found are looked for again.
void forget_absent_devices(void);

// A number below most_indexed_devices that no other tracked device has at the moment, -1 for none.
int device_number(const device_record *rec);

#endif
