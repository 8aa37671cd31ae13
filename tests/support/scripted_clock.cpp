#include "tests/support/scripted_clock.h"

#include "tests/support/scripted_platform.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <sys/time.h>
#include <thread>
#include <time.h>
#include <unistd.h>

static std::atomic<u32> epoch{0};
static const std::thread::id test_thread = std::this_thread::get_id();
static std::mutex naps_mutex;
static std::condition_variable nap_taken;
static std::vector<nap> all_naps, worker_naps;

void set_clock(long long now)
{
    epoch = static_cast<u32>(now);
}

long long clock_now()
{
    return epoch;
}

std::vector<nap> naps()
{
    std::lock_guard<std::mutex> held(naps_mutex);
    return all_naps;
}

void forget_naps()
{
    std::lock_guard<std::mutex> held(naps_mutex);
    all_naps.clear();
    worker_naps.clear();
}

nap wait_for_worker_nap()
{
    std::unique_lock<std::mutex> held(naps_mutex);
    nap_taken.wait(held, [] { return !worker_naps.empty(); });
    return worker_naps.front();
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
    bool held_by_somebody = lock_is_held();
    std::unique_lock<std::mutex> guard(naps_mutex);
    all_naps.push_back({seconds, held_by_somebody});
    if (std::this_thread::get_id() == test_thread) {
        epoch += seconds;
        return 0;
    }
    worker_naps.push_back(all_naps.back());
    nap_taken.notify_all();
    guard.unlock();
    for (;;)
        pause();
}
}
