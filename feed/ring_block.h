// A block of the kernel's packet ring (TPACKET_V3): frames of an interface, one behind the other.
//
// Every offset and length in it is checked against the block before it is used.
#ifndef FEED_RING_BLOCK_H
#define FEED_RING_BLOCK_H

#include "feed/byte_view.h"

struct ring_frame {
    byte_view bytes; // from the link header on, as far as it was copied
    uint32_t length; // of the frame on the wire
    uint64_t seconds, microseconds;
};

class ring_block {
public:
    explicit ring_block(byte_view block);
    // False behind the last one, and where the next makes no sense.
    bool next(ring_frame *out);
    // The end was reached with frames left that make no sense.
    bool is_broken() const { return left > 0; }

private:
    byte_view bytes;
    size_t at = 0;
    uint32_t left = 0;
};

#endif
