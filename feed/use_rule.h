// Use of an app by a device, from the bytes in intervals of ten seconds.
//
//   the last three intervals together reach the app's `start`   -> marked: it may open a session
//   the app is in use and the interval reaches `continue`       -> plain: an open session goes on
//   anything else                                               -> silent
//
// Bytes of hosts that other sites and apps embed (share buttons, maps in a page) count for `continue` only.
// In use: from a marked interval until three minutes without a marked or plain one. An interval without a byte is always
// silent.
#ifndef FEED_USE_RULE_H
#define FEED_USE_RULE_H

#include "feed/app_catalogue.h"
#include "feed/hit.h"

constexpr uint64_t interval_us = 10000000;
constexpr int intervals_of_start = 3;
constexpr int intervals_until_unused = 18;

struct interval_bytes {
    uint64_t up = 0, down = 0; // all of them
    uint64_t of_calls = 0;
    uint64_t embedded = 0; // of hosts that other sites embed
};

struct app_use {
    uint32_t app = 0;
    interval_bytes bytes[intervals_of_start]; // the running interval first
    int quiet = 0;                            // intervals since the last that was not silent
    bool in_use = false;
    // The flow that moved most in the running interval.
    uint64_t most_bytes = 0;
    evidence by = evidence::none;
    std::string host;
    flow_key flow;
};

enum class use_verdict { silent, plain, marked };

// Ends the running interval: judges it, and makes place for the next. `out` is filled unless silent, but for device and time.
use_verdict end_interval(app_use *use, const app_entry &app, hit *out);

// Nothing is left that could matter.
bool is_forgotten(const app_use &use);

#endif
