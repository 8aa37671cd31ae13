// Days of the household: local dates of the box's time zone, written as numbers such as 20261122. A day has 23, 24 or 25 hours.
#ifndef HOME_DAYS_H
#define HOME_DAYS_H

#include <stdint.h>

#include <string>

// The local date of an epoch second.
int day_of(int64_t time);
// Its first epoch second, and the first after it.
int64_t day_start(int day);
int64_t day_end(int day);
// The date `days` later (or earlier).
int day_after(int day, int days);
// "2026-11-22", and back; 0 for a text that is no date.
std::string day_text(int day);
int read_day(const std::string &text);

#endif
