#include "home/days.h"

#include <stdio.h>
#include <time.h>

namespace {

int number_of_date(const tm &date)
{
    return (date.tm_year + 1900) * 10000 + (date.tm_mon + 1) * 100 + date.tm_mday;
}

// Noon, which every day has and which no change of the clocks comes near.
time_t noon_of(int day, int later)
{
    tm date = {};
    date.tm_year = day / 10000 - 1900;
    date.tm_mon = day / 100 % 100 - 1;
    date.tm_mday = day % 100 + later;
    date.tm_hour = 12;
    date.tm_isdst = -1;
    return mktime(&date);
}

} // namespace

int day_of(int64_t time)
{
    time_t moment = static_cast<time_t>(time);
    tm date = {};
    return localtime_r(&moment, &date) ? number_of_date(date) : 0;
}

int64_t day_start(int day)
{
    // Where the clocks change at midnight, a day may begin at 01:00 or have two midnights: search for its first second.
    int64_t late = noon_of(day, 0), early = late - 24 * 3600;
    while (late - early > 1) {
        int64_t middle = early + (late - early) / 2;
        (day_of(middle) < day ? early : late) = middle;
    }
    return late;
}

int64_t day_end(int day)
{
    // Nearly all questions are about one day. What is remembered is checked, as the zone may have been changed.
    static int64_t remembered = 0;
    if (day_of(remembered - 1) != day || day_of(remembered) == day)
        remembered = day_start(day_after(day, 1));
    return remembered;
}

int day_after(int day, int days)
{
    return day_of(noon_of(day, days));
}

std::string day_text(int day)
{
    char text[40];
    snprintf(text, sizeof(text), "%04d-%02d-%02d", day / 10000, day / 100 % 100, day % 100);
    return text;
}

int read_day(const std::string &text)
{
    int year = 0, month = 0, date = 0, length = 0;
    if (sscanf(text.c_str(), "%4d-%2d-%2d%n", &year, &month, &date, &length) != 3 || text.size() != 10 || length != 10)
        return 0;
    if (year < 1971 || year > 9998 || month < 1 || month > 12 || date < 1 || date > 31)
        return 0;
    int day = year * 10000 + month * 100 + date;
    return day_after(day, 0) == day ? day : 0;
}
