#include "tools/appidentctl/time_text.h"

std::string time_text(time_t when)
{
    char text[32] = "";
    struct tm local = {};
    localtime_r(&when, &local);
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

std::string clock_text(time_t when)
{
    char text[32] = "";
    struct tm local = {}, today = {};
    time_t now = time(nullptr);
    localtime_r(&when, &local);
    localtime_r(&now, &today);
    bool same_day = local.tm_year == today.tm_year && local.tm_yday == today.tm_yday;
    strftime(text, sizeof(text), same_day ? "%H:%M" : "%m-%d %H:%M", &local);
    return text;
}

std::string span_text(time_t seconds)
{
    if (seconds < 120)
        return std::to_string(seconds) + " s";
    return seconds < 7200 ? std::to_string(seconds / 60) + " min" : std::to_string(seconds / 3600) + " h";
}
