// The CRYPTO bytes of a QUIC client's Initial packets (RFC 9000, 9001, 9369). They are encrypted with keys that anybody can
// derive from the connection id that the client drew.
#ifndef FEED_QUIC_INITIAL_H
#define FEED_QUIC_INITIAL_H

#include "feed/byte_view.h"
#include "feed/stream_pieces.h"

#include <array>

struct quic_keys {
    uint32_t version = 0; // 0: none yet
    uint8_t id_size = 0;
    std::array<uint8_t, 20> id{}; // the client's first destination connection id
    std::array<uint8_t, 16> key{};
    std::array<uint8_t, 12> iv{};
    std::array<uint8_t, 16> header_key{};
};

enum class quic_outcome {
    taken,      // CRYPTO bytes were added
    nothing,    // QUIC of a known version, but no CRYPTO bytes
    unreadable, // an Initial packet that does not decrypt or makes no sense
    full,       // the stream takes no more
    not_quic,
};
// One datagram of the client, all its packets. Not thread-safe: one cipher context serves all.
quic_outcome read_quic_datagram(byte_view datagram, quic_keys *keys, stream_pieces *crypto);

#endif
