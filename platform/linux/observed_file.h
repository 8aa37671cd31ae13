// state_dir/observed.json: what was observed, for the next start; nobody else writes it. Written seldom, as it lies on flash.
//   {"roster":true,"devices":[{"mac":"AA-BB-CC-DD-EE-FF","address":"192.168.1.20","name":"tablet","seen":1700000000}, ...]}
// "roster" tells that there was a roster once, "name" is the lease's, "seen" an epoch second.
#ifndef PLATFORM_LINUX_OBSERVED_FILE_H
#define PLATFORM_LINUX_OBSERVED_FILE_H

#include "igd/igd_types.h"

// Once, before anything is asked of the roster; later calls do nothing. Any thread.
void observed_load();
// Something changed that is worth keeping. With observed_lock held.
void observed_file_news();
// The neighbours' thread only, without the lock.
void observed_save_when_due(u64 now);

#endif
