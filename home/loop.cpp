#include "home/loop.h"

#include "home/database.h"

#include <algorithm>
#include <limits.h>

namespace {

constexpr size_t slots_most = 64;
constexpr int64_t longest_wait_ms = 60000;

size_t prepare_timer(void *state, pollfd *, size_t, int64_t, int64_t *wake_ms)
{
    *wake_ms = static_cast<loop_timer *>(state)->next_ms;
    return 0;
}

void serve_timer(void *state, const pollfd *, size_t, int64_t now_ms)
{
    loop_timer *timer = static_cast<loop_timer *>(state);
    if (now_ms < timer->next_ms)
        return;
    timer->next_ms = now_ms + timer->period_ms;
    timer->due(timer->context);
}

} // namespace

void run_loop(loop *what, int stop_fd)
{
    std::vector<size_t> used(what->parts.size());
    while (!what->stop) {
        pollfd slots[slots_most] = {{stop_fd, POLLIN, 0}};
        size_t filled = 1;
        int64_t now = uptime_ms(), wake = now + longest_wait_ms;
        for (size_t i = 0; i < what->parts.size(); ++i) {
            int64_t wanted = INT64_MAX;
            used[i] = what->parts[i].prepare(what->parts[i].state, slots + filled, slots_most - filled, now, &wanted);
            filled += used[i];
            wake = std::min(wake, wanted);
        }
        int ready = poll(slots, filled, static_cast<int>(std::max<int64_t>(wake - now, 0)));
        if (slots[0].revents)
            return;
        now = uptime_ms();
        size_t at = 1;
        for (size_t i = 0; i < what->parts.size(); ++i) {
            // A poll that was interrupted leaves the slots as they were.
            for (size_t slot = at; ready < 0 && slot < at + used[i]; ++slot)
                slots[slot].revents = 0;
            what->parts[i].serve(what->parts[i].state, slots + at, used[i], now);
            at += used[i];
        }
    }
}

loop_part timer_part(loop_timer *timer)
{
    return {prepare_timer, serve_timer, timer};
}
