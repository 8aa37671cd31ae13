// A faster clock for a whole process: linked into a program, these stand in place of the C library's.
//
// APPIDENT_FAST_CLOCK="ORIGIN BASE SPEED": at the real epoch microsecond ORIGIN it was BASE (epoch seconds), and from then on
// time runs SPEED times as fast. Processes with the same words share one time. A preloaded library would do the same, but not
// under every sanitizer.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr long long million = 1000000;

struct clock_rule {
    long long origin, base, speed;
};

clock_rule read_rule()
{
    clock_rule rule = {0, 0, 1};
    const char *words = getenv("APPIDENT_FAST_CLOCK");
    if (words && sscanf(words, "%lld %lld %lld", &rule.origin, &rule.base, &rule.speed) != 3)
        rule = {0, 0, 1};
    return rule;
}

// Read before main, so that no thread meets a half-read rule.
const clock_rule rule = read_rule();

long long now_us()
{
    timespec real = {};
    syscall(SYS_clock_gettime, CLOCK_REALTIME, &real);
    long long us = real.tv_sec * million + real.tv_nsec / 1000;
    return rule.base * million + (us - rule.origin) * rule.speed;
}

} // namespace

extern "C" {

time_t time(time_t *out)
{
    time_t now = static_cast<time_t>(now_us() / million);
    if (out)
        *out = now;
    return now;
}

int gettimeofday(struct timeval *tv, void *)
{
    long long us = now_us();
    tv->tv_sec = static_cast<time_t>(us / million);
    tv->tv_usec = static_cast<suseconds_t>(us % million);
    return 0;
}

int nanosleep(const struct timespec *wanted, struct timespec *)
{
    long long ns = (wanted->tv_sec * 1000 * million + wanted->tv_nsec) / rule.speed;
    timespec real = {static_cast<time_t>(ns / (1000 * million)), static_cast<long>(ns % (1000 * million))};
    while (syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &real, &real) != 0 && errno == EINTR) {
    }
    return 0;
}

unsigned int sleep(unsigned int seconds)
{
    timespec wanted = {static_cast<time_t>(seconds), 0};
    nanosleep(&wanted, nullptr);
    return 0;
}
}
