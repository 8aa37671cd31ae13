// The uptime clock.
#include "igd/igd_lib.h"

#include <time.h>

unsigned int get_system_uptime(void)
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned int>(now.tv_sec);
}
