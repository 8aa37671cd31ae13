// The cryptography of QUIC's Initial packets, on OpenSSL's libcrypto. Not thread-safe.
#ifndef FEED_QUIC_CRYPTO_H
#define FEED_QUIC_CRYPTO_H

#include "feed/byte_view.h"
#include "feed/quic_initial.h"

using quic_salt = std::array<uint8_t, 20>;

struct quic_format {
    uint8_t initial_type; // packet types as they stand in the first byte's bits 4 and 5
    uint8_t retry_type;
    const char *key_label, *iv_label, *header_label;
};

struct quic_version {
    uint32_t first, last; // version numbers that share what follows
    quic_format format;
    quic_salt salt;
};
// Null for a version that is not known.
const quic_version *find_quic_version(uint32_t version);

// False when the version is not known or the library refuses.
bool derive_quic_keys(uint32_t version, byte_view id, quic_keys *out);

bool aes_block(const std::array<uint8_t, 16> &key, const uint8_t *in, uint8_t *out);

// `sealed` ends with the tag; `out` takes sealed.size bytes. The plain text's size, or -1 when the tag does not match.
int aes_gcm_open(const std::array<uint8_t, 16> &key, const std::array<uint8_t, 12> &nonce, byte_view header, byte_view sealed,
                 uint8_t *out);

#endif
