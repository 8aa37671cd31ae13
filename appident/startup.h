// Initialises the tracking: the device list and the threads. Once, before the event loop; takes no lock.
#ifndef APPIDENT_STARTUP_H
#define APPIDENT_STARTUP_H

// Waits 20 seconds for the router's services, builds the device list and starts the threads. -1 when one does not start.
int app_ident_init(void);
// Returns at once: pushes are sent directly, nothing is queued.
void *process_my_push_list_thread(void *arg);

#endif
