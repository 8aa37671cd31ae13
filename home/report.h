// --report: sessions and sums for people or, as JSON, for programs. docs/man/appident-home.8 describes the JSON.
#ifndef HOME_REPORT_H
#define HOME_REPORT_H

#include "home/app_names.h"
#include "home/history.h"

// The days `from` to `to`, both included; `from` 0: all that is kept.
void print_report(history *of, const app_names &apps, int from, int to, bool json);

#endif
