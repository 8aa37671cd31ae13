// The diagnostic dump: every device and its apps of the day into the log, for the technician. The lock is held.
#ifndef APPIDENT_TRACKING_DUMP_H
#define APPIDENT_TRACKING_DUMP_H

void list_device_time_axis_apps(void);

#endif
