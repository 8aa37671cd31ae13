// What the page's server costs: the program itself on a database, asked over loopback.
#ifndef BENCH_HOME_PAGE_H
#define BENCH_HOME_PAGE_H

#include <string>

// Starts the program on the database, asks 200 times, and prints how long it took to begin, the median of a day's timeline from
// the question to its last byte, and how much is resident then. False when it does not answer.
bool measure_page(const std::string &directory, const std::string &database, const std::string &day);

#endif
