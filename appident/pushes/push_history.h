// Usage-history pushes (1008): an app's finished time-axis session, at once or from the copy armed at day end.
//
// The lock is held.
#ifndef APPIDENT_PUSHES_PUSH_HISTORY_H
#define APPIDENT_PUSHES_PUSH_HISTORY_H

#include "appident/model/records.h"

// Reports the session as it stands in the record. The push result, -1 when nothing was pushed.
int push_history_time_axis_sumtime(device_record *dev, app_ident_record *app);
// Sends and clears the pending delayed report; one that is refused stays pending.
int push_delay_history_time(device_record *dev);

#endif
