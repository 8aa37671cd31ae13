// Where to look first: small dense tables beside the device list, so that a hit need not walk records of 29 KB.
//
// The list and the records are the truth. What is read here is checked against the record before it is used, and what is not
// found here is looked for there, so a list or a record changed by other means is still served rightly. The lock is held.
//
// Rejected: links or hashes inside the records (their layout is fixed), a hash table with buckets (at a few hundred devices a
// scan of one kilobyte of keys costs less than its upkeep).
#ifndef APPIDENT_MODEL_DEVICE_INDEX_H
#define APPIDENT_MODEL_DEVICE_INDEX_H

#include "appident/model/records.h"

// First record of the list with that MAC text, or null: from the list itself, or through the tables.
device_record *tracked_device(const char *mac_str);
device_record *look_up_device(const char *mac_str);

// Slot of the app, -1 when the device has none; then *free_slot is the lowest free slot, -1 for none.
int find_app_slot(device_record *dev, u32 app_id, int *free_slot);
// Notes that the app took a slot.
void index_app_slot(device_record *dev, int slot);
// A slot other than `besides` whose app holds the device's time axis, -1 for none.
int find_time_axis_holder(device_record *dev, int besides);

#endif
