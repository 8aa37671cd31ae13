// Moments and spans for people.
#ifndef APPIDENTCTL_TIME_TEXT_H
#define APPIDENTCTL_TIME_TEXT_H

#include <string>
#include <time.h>

// An epoch second as local time, "2026-03-01 18:32:05".
std::string time_text(time_t when);
// The same in few words: "18:32" within the day of `day`, else "03-01 18:32".
std::string clock_text(time_t when, time_t day = time(nullptr));
// The local date some days later, or earlier, "2026-03-01".
std::string date_text(time_t when, int days);
// Whether the text is such a date.
bool is_date(const std::string &text);
// "12 s", "3 min" or "2 h".
std::string span_text(time_t seconds);

#endif
