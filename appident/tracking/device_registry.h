// Who is tracked: the devices on the list, from the start-up list, from the router's events and from first settings.
//
// Each says whether it takes the lock.
#ifndef APPIDENT_TRACKING_DEVICE_REGISTRY_H
#define APPIDENT_TRACKING_DEVICE_REGISTRY_H

#include "appident/model/records.h"

// Fills the list from the devices on line. Before the threads start; takes no lock.
void init_device_app_list(void);
// action 0 = on line, 2 = off line; both pointers must be given. Takes the lock.
void handle_device_action(int action, struct in_addr *addr, const unsigned char *mac);
// Makes sure that a device which got its first settings is tracked. Takes the lock.
void add_device_record_to_tail(const char *mac_str);

// First traffic or payment event of a device: marks it active, notes its address, loads its settings; role and MAC bytes are
// taken afresh only when it was never seen before. The lock is held.
void activate_device(device_record *rec, const char *ip_text, const unsigned char *mac_bytes);

#endif
