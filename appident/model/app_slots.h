// Where an app of a device stands in its table of 110, and who holds the time axis: a guess first, then the table. The lock is
// held.
//
// The records are the truth: a guess is checked against the record before it is used, so that tables which others changed are
// read rightly.
#ifndef APPIDENT_MODEL_APP_SLOTS_H
#define APPIDENT_MODEL_APP_SLOTS_H

#include "appident/model/records.h"

// Slot of the app, -1 when the device has none; then *free_slot is the lowest free slot, -1 for none.
int find_app_slot(device_record *dev, u32 app_id, int *free_slot);
// Makes the app in the slot, which has just taken it, quick to find.
void note_app_slot(device_record *dev, int slot);
// A slot other than `besides` whose app holds the device's time axis, -1 for none.
int find_time_axis_holder(device_record *dev, int besides);

#endif
