#include "feed/feed_page.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

namespace {

constexpr const char *names[] = {FEED_COUNTERS(COUNTER_NAME)};
std::atomic<u32> values[feed_counter_end];
counter_page page = {names, values, feed_counter_end, -1};

} // namespace

void feed_page_open(const std::string &path)
{
    mkdir(path.substr(0, path.rfind('/')).c_str(), 0755); // there already, as a rule
    page.fd = counter_page_create(path.c_str(), page);
    if (page.fd < 0 || fchmod(page.fd, 0644) != 0)
        fprintf(stderr, "appident-feed: %s: no counters there: %s\n", path.c_str(), strerror(errno));
}

void feed_page_write(const feed_counters &counts)
{
    for (unsigned int i = 0; i < feed_counter_end; i++)
        values[i] = static_cast<u32>(counts[i]);
    counter_page_write(page);
}
