#include "feed/use_rule.h"

#include <algorithm>

namespace {

uint64_t total(const interval_bytes &bytes)
{
    return bytes.up + bytes.down;
}

use_verdict judge(const app_use &use, const app_entry &app)
{
    uint64_t now = total(use.bytes[0]);
    uint64_t window = 0;
    for (const interval_bytes &one : use.bytes)
        window += total(one) - one.embedded;
    if (now == 0)
        return use_verdict::silent;
    if (window >= app.start_bytes)
        return use_verdict::marked;
    return use.in_use && now >= app.continue_bytes ? use_verdict::plain : use_verdict::silent;
}

} // namespace

use_verdict end_interval(app_use *use, const app_entry &app, hit *out)
{
    use_verdict verdict = judge(*use, app);
    if (verdict != use_verdict::silent) {
        const interval_bytes &now = use->bytes[0];
        out->app = use->app;
        out->is_marked = verdict == use_verdict::marked;
        out->is_call = now.of_calls * 2 > total(now);
        out->up_bytes = now.up;
        out->down_bytes = now.down;
        out->by = use->by;
        out->host = use->host;
        out->flow = use->flow;
        use->in_use = true;
        use->quiet = 0;
    } else if (++use->quiet >= intervals_until_unused) {
        use->in_use = false;
    }
    std::move_backward(std::begin(use->bytes), std::end(use->bytes) - 1, std::end(use->bytes));
    use->bytes[0] = {};
    use->most_bytes = 0;
    return verdict;
}

bool is_forgotten(const app_use &use)
{
    return !use.in_use &&
           std::all_of(std::begin(use.bytes), std::end(use.bytes), [](const auto &one) { return total(one) == 0; });
}
