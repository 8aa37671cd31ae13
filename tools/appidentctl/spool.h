// The spool of pushes: the lines that the platform library keeps of what it passed on.
#ifndef APPIDENTCTL_SPOOL_H
#define APPIDENTCTL_SPOOL_H

#include "common/guards.h"
#include "igd/igd_types.h"
#include "tools/appidentctl/places.h"

#include <functional>
#include <string>
#include <time.h>

struct spool_push {
    int code;          // 0: a device-status record
    time_t time;       // epoch seconds
    time_t occur_time; // uptime seconds, 0 unless the push was delayed
    const cJSON *data; // of one push or one record
    std::string mac;   // MAC text
    u32 app_id;        // 0: none
};

// Calls `take` with each push of a line; status records of one line come one by one. A line that does not parse is passed over.
void read_push_line(const std::string &line, const std::function<void(const spool_push &)> &take);
// The whole spool, oldest line first. False when there is none, with the reason in errno.
bool read_spool(const places &where, const std::function<void(const std::string &line)> &take);

#endif
