#include "tests/kit/scripted_clock.h"

#include "tests/kit/scripted_platform.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <sys/time.h>
#include <thread>
#include <time.h>
#include <unistd.h>

namespace {

std::atomic<u32> epoch{0};
const std::thread::id test_thread = std::this_thread::get_id();
std::mutex naps_mutex;
std::condition_variable nap_taken;
std::optional<nap> worker_nap;

} // namespace

void set_clock(long long now)
{
    epoch = static_cast<u32>(now);
}

long long clock_now()
{
    return epoch;
}

nap wait_for_worker_nap()
{
    std::unique_lock<std::mutex> held(naps_mutex);
    nap_taken.wait(held, [] { return worker_nap.has_value(); });
    return *worker_nap;
}

// As the C library declares its functions.
#ifndef __THROW
#define __THROW
#endif

extern "C" {

time_t time(time_t *out) __THROW
{
    time_t now = static_cast<time_t>(clock_now());
    if (out != nullptr)
        *out = now;
    return now;
}

int gettimeofday(struct timeval *tv, void *) __THROW
{
    *tv = {static_cast<time_t>(clock_now()), 0};
    return 0;
}

unsigned int sleep(unsigned int seconds)
{
    if (std::this_thread::get_id() == test_thread) {
        epoch += seconds;
        return 0;
    }
    {
        // Told with the lock held: the test may be over, and the condition gone, as soon as it is let go.
        std::lock_guard<std::mutex> held(naps_mutex);
        worker_nap = {seconds, lock_is_held()};
        nap_taken.notify_all();
    }
    for (;;)
        pause();
}
}
