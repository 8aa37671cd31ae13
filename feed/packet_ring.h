// A bounded ring of memory in which the kernel lays copies of the IP packets that pass an interface (AF_PACKET, TPACKET_V3).
//
// What finds no room is lost for the feed only, and counted by the kernel. To open it needs CAP_NET_RAW; nothing later does.
#ifndef FEED_PACKET_RING_H
#define FEED_PACKET_RING_H

#include "feed/byte_view.h"

#include <string>

class packet_ring {
public:
    packet_ring() = default;
    ~packet_ring();
    packet_ring(const packet_ring &) = delete;
    packet_ring &operator=(const packet_ring &) = delete;

    // False, with errno. Nothing comes before attach().
    bool open();
    // From now on the packets of this interface, in both directions and also those for others on the link. False, with errno:
    // ENODEV where there is none, EPROTONOSUPPORT where its kind is not known.
    bool attach(const std::string &interface);
    // The kind of its frames, as libpcap's DLT_ number.
    int link_type() const { return type; }

    // The next block of frames; empty where none is ready. give_back() it before the next.
    byte_view next_block() const;
    void give_back();
    // Packets for which there was no room, since the last call.
    uint32_t take_lost();
    // Waits for a block, or for a signal. That the interface goes away is no error.
    void wait(int milliseconds);

private:
    uint8_t *block() const;

    int fd = -1;
    uint8_t *memory = nullptr;
    size_t current = 0; // the block that is filled next
    int type = 0;
};

#endif
