// What the history learns, told to whoever wants to know: the page's events, notices, MQTT, metrics.
//
// A fact is told after it has been written to the database, an alert after it has been committed, so that a restart does not
// tell it again. Facts of the past come too, when the program catches up: compare `time` with the clock where that matters.
#ifndef HOME_FACTS_H
#define HOME_FACTS_H

#include "igd/igd_types.h"

#include <stdint.h>

#include <string>

enum fact_kind {
    fact_session, // a session began, grew or ended; key: device, start, app
    fact_alert,   // key: alert
    fact_device,  // name, role, person or whether it is on line
    fact_gap,     // lines were lost, the daemon restarted or its clock jumped
    fact_now,     // the daemon has been asked what is in use, or no longer answers
    fact_line,    // a line of the spool as it came
    fact_kind_end,
};

struct fact {
    fact_kind kind;
    int64_t time;     // epoch second of the line that told it
    int64_t device;   // row of the device, 0 for none
    int64_t start;    // session
    u32 app;          // session
    int64_t alert;    // row of the alert
    std::string line; // fact_line: without its line feed
};

// Called on the loop's thread. It may read the history and write to it; it must not wait.
struct fact_listener {
    u32 kinds; // bits of those wanted: 1u << fact_alert | ...
    void (*told)(void *context, const fact &news);
    void *context;
};

constexpr u32 fact_bit(fact_kind kind)
{
    return 1u << kind;
}

#endif
