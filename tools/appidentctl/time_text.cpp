#include "tools/appidentctl/time_text.h"

std::string time_text(time_t when)
{
    char text[32] = "";
    struct tm local = {};
    localtime_r(&when, &local);
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

std::string clock_text(time_t when, time_t day)
{
    char text[32] = "";
    struct tm local = {}, today = {};
    localtime_r(&when, &local);
    localtime_r(&day, &today);
    bool same_day = local.tm_year == today.tm_year && local.tm_yday == today.tm_yday;
    strftime(text, sizeof(text), same_day ? "%H:%M" : "%m-%d %H:%M", &local);
    return text;
}

std::string date_text(time_t when, int days)
{
    char text[32] = "";
    struct tm local = {};
    localtime_r(&when, &local);
    local.tm_mday += days;
    local.tm_hour = 12; // which every day has
    local.tm_isdst = -1;
    mktime(&local);
    strftime(text, sizeof(text), "%Y-%m-%d", &local);
    return text;
}

bool is_date(const std::string &text)
{
    struct tm date = {};
    const char *end = strptime(text.c_str(), "%Y-%m-%d", &date);
    date.tm_hour = 12;
    date.tm_isdst = -1;
    return end && !*end && date_text(mktime(&date), 0) == text;
}

std::string span_text(time_t seconds)
{
    if (seconds < 120)
        return std::to_string(seconds) + " s";
    return seconds < 7200 ? std::to_string(seconds / 60) + " min" : std::to_string(seconds / 3600) + " h";
}
