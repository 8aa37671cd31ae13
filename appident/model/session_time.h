// The time that a session stands for. Periods are started minutes.
//
// The last started minute of a session is never counted: that a session is over is only known three empty minutes later, and
// the minute of its last hit is the first of those.
#ifndef APPIDENT_MODEL_SESSION_TIME_H
#define APPIDENT_MODEL_SESSION_TIME_H

#include "igd/igd_types.h"

// Differences are unsigned: of a period of 0, which no open session has, they are huge.
constexpr u32 counted_minutes(u32 period)
{
    return period - 1;
}

constexpr u32 counted_seconds(u32 period)
{
    return period * 60 - 60;
}

// A session with no counted minute: it adds nothing to any sum and gets no history push.
constexpr bool is_short(u32 period)
{
    return period < 2;
}

// Epoch seconds. A short session ends with its one started minute, so that it does not end when it begins.
constexpr u32 session_end(u32 start, u32 period)
{
    return start + (is_short(period) ? period * 60 : counted_seconds(period));
}

#endif
