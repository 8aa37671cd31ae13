// The bytes of all connections, as connection tracking counts them, for the classifier.
#ifndef FEED_CONNTRACK_COUNTERS_H
#define FEED_CONNTRACK_COUNTERS_H

#include "feed/netlink_socket.h"
#include "feed/source.h"

class conntrack_counters {
public:
    // False, with errno.
    bool open();
    // Asks for all connections and counts those that the classifier knows; with `are_old` also those that it does not, as
    // connections whose first packets nobody saw. A later unknown one is left alone: its first packets may be on their way.
    // False, and counted, when the kernel did not tell them all.
    bool read(const source_run &run, bool are_old, uint64_t now_us);

private:
    netlink_socket socket;
};

#endif
