// The packets that pass an interface: for a bridge, or a port that mirrors one, where no rule of netfilter sees the traffic.
#include "feed/link_layer.h"
#include "feed/packet_ring.h"
#include "feed/rights.h"
#include "feed/ring_block.h"
#include "feed/source.h"
#include "feed/wall_clock.h"

#include <algorithm>
#include <errno.h>
#include <net/if.h>
#include <stdio.h>
#include <string.h>

namespace {

constexpr uint64_t second_us = 1000000;
constexpr int longest_wait_ms = 100, last_wait_ms = 250;
// Between two looks at the clock.
constexpr int most_blocks_at_once = 16;

void take_frame(const ring_frame &from, int link_type, uint64_t now, const source_run &run)
{
    link_frame frame;
    if (!find_ip(link_type, from.bytes, &frame))
        return;
    packet one{};
    one.time_us = believed_us(from.seconds, from.microseconds, now);
    fill_packet(frame, from.length, &one);
    run.classify.take(one);
}

void take_blocks(packet_ring *ring, const source_run &run)
{
    for (int i = 0; i < most_blocks_at_once; i++) {
        byte_view bytes = ring->next_block();
        if (bytes.size == 0)
            return;
        uint64_t now = wall_us();
        ring_block block(bytes);
        ring_frame frame;
        while (block.next(&frame))
            take_frame(frame, ring->link_type(), now, run);
        if (block.is_broken())
            run.counts[feed_log_undecodable]++;
        ring->give_back();
    }
}

// Which interface of this name the ring shows; 0 while there is none.
struct attachment {
    const std::string &name;
    unsigned int index = 0;

    // Follows an interface that went away and came back.
    void look_again(packet_ring *ring)
    {
        unsigned int found = if_nametoindex(name.c_str());
        if (found == index)
            return;
        if (found == 0)
            fprintf(stderr, "appident-feed: %s is gone; waiting for it\n", name.c_str());
        else if (!ring->attach(name))
            return;
        else if (index == 0)
            fprintf(stderr, "appident-feed: %s is back\n", name.c_str());
        index = found;
    }
};

} // namespace

int run_interface_source(const std::string &name, const source_run &run)
{
    packet_ring ring;
    if (!ring.open()) {
        fprintf(stderr, "appident-feed: a packet socket: %s\n", strerror(errno));
        return feed_failed;
    }
    attachment where{name, if_nametoindex(name.c_str())};
    if (!ring.attach(name)) {
        fprintf(stderr, "appident-feed: %s: %s\n", name.c_str(), strerror(errno));
        return feed_no_input;
    }
    run.opened();
    give_up_rights(!run.options.dry);
    uint64_t looked = wall_us(), refreshed = looked;
    run.classify.advance(looked);
    while (!run.stop) {
        ring.wait(longest_wait_ms);
        take_blocks(&ring, run);
        uint64_t now = wall_us();
        run.classify.advance(now);
        // A clock that was set back is no reason to wait.
        if (now - looked >= second_us) {
            where.look_again(&ring);
            run.counts[feed_log_lost] += ring.take_lost();
            looked = now;
        }
        if (now - refreshed >= interval_us) {
            run.refresh();
            refreshed = now;
        }
    }
    // What the kernel still gathers.
    ring.wait(last_wait_ms);
    take_blocks(&ring, run);
    run.counts[feed_log_lost] += ring.take_lost();
    run.classify.finish();
    return feed_done;
}
