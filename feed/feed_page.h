// The feed's counter page: a file that everybody may read, as it holds sums and no names.
#ifndef FEED_PAGE_H
#define FEED_PAGE_H

#include "feed/feed_counters.h"

#include <string>

// Makes the file, and its directory where that is missing, and tells on standard error when it cannot. The feed runs on
// without.
void feed_page_open(const std::string &path);
// Copies the counters to the page. Nothing before feed_page_open.
void feed_page_write(const feed_counters &counts);

#endif
