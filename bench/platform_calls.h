// Counts what the daemon's code asks of the platform library; the linker puts the counting before each real operation.
#ifndef BENCH_PLATFORM_CALLS_H
#define BENCH_PLATFORM_CALLS_H

unsigned platform_calls();

#endif
