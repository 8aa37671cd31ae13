// Routers that forward what the benchmark sends, each in a network namespace of its own with what watches there.
//
// Needs root, and a private network and mount namespace.
#ifndef BENCH_FEED_ROUTER_H
#define BENCH_FEED_ROUTER_H

#include "bench/feed/traffic.h"

#include <sys/types.h>

struct router {
    std::string name;
    int lan = -1, wan = -1; // packet sockets on the far ends of its links
    pid_t watcher = -1;
};

// Makes the router; false after a message.
bool make_router(const std::string &name, router *out);
// Starts a program on it, and waits until the shell command `ready` succeeds there.
bool start_watcher(router *one, std::vector<std::string> words, const std::string &ready);
// Ends it by the signal.
void stop_watcher(router *one, int signal);

// Sends the frames as fast as they go, above everything else on this processor core. Nanoseconds that it took: sending,
// forwarding, and what the kernel does for the watcher meanwhile.
double send_frames(const router &to, const std::vector<frame> &frames);
// Packets that it forwarded to the server's side and to the LAN.
uint64_t packets_forwarded(const router &one);
// Processor time that the watcher has used, in nanoseconds.
double watcher_time(const router &one);
double watcher_resident_kb(const router &one);

#endif
