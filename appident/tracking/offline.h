// Ending many sessions at once: every open one when the clock steps back, and those of devices whose role was taken away. The
// lock is held.
#ifndef APPIDENT_TRACKING_OFFLINE_H
#define APPIDENT_TRACKING_OFFLINE_H

void process_offline_apps(void);
void del_role_protect(void);

#endif
