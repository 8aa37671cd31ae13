#include "feed/quic_initial.h"

#include "feed/quic_crypto.h"

#include <algorithm>
#include <string.h>

namespace {

constexpr size_t longest_id = 20;
constexpr size_t header_sample = 16;
constexpr size_t tag_size = 16;
constexpr size_t largest_packet = 4096;
constexpr size_t least_initial = 1200; // of a client's datagram that opens a connection

enum : uint64_t { frame_padding = 0, frame_ping = 1, frame_ack = 2, frame_ack_ecn = 3, frame_crypto = 6, frame_close = 0x1C };

// A packet of a long header, as it stands in the datagram.
struct long_packet {
    uint32_t version;
    bool is_initial;
    byte_view id;         // destination connection id
    byte_view whole;      // header and protected payload
    size_t number_offset; // of the packet number in `whole`
};

uint64_t read_varint(byte_reader *reader)
{
    uint8_t first = reader->left() > 0 ? reader->bytes.data[reader->at] : uint8_t{0};
    unsigned int size = 1u << (first >> 6);
    return reader->number(size) & (~uint64_t{0} >> (64 - size * 8 + 2));
}

// The next packet; false at the end of what can be told apart.
bool next_packet(byte_reader *datagram, long_packet *out)
{
    size_t begin = datagram->at;
    if (datagram->left() == 0)
        return false;
    uint8_t flags = datagram->u8();
    out->version = datagram->u32();
    const quic_version *version = find_quic_version(out->version);
    if ((flags & 0xC0) != 0xC0 || datagram->failed || !version)
        return false;
    unsigned int type = flags >> 4 & 3;
    out->is_initial = type == version->format.initial_type;
    out->id = datagram->take(std::min<size_t>(datagram->u8(), longest_id + 1));
    datagram->skip(datagram->u8()); // source connection id
    if (out->id.size > longest_id || type == version->format.retry_type)
        return false;
    if (out->is_initial)
        datagram->skip(static_cast<size_t>(std::min<uint64_t>(read_varint(datagram), largest_packet))); // token
    uint64_t length = read_varint(datagram);
    size_t number = datagram->at;
    if (datagram->failed || length > datagram->left())
        return false;
    datagram->skip(static_cast<size_t>(length));
    out->whole = datagram->bytes.part(begin, datagram->at - begin);
    out->number_offset = number - begin;
    return true;
}

// Removes header protection and decrypts; the plain frames' size, or -1.
int open_packet(const long_packet &from, const quic_keys &keys, uint8_t *plain)
{
    uint8_t copy[largest_packet];
    size_t number_at = from.number_offset;
    if (from.whole.size > sizeof(copy) || from.whole.size < number_at + 4 + header_sample)
        return -1;
    memcpy(copy, from.whole.data, from.whole.size);
    uint8_t mask[16];
    if (!aes_block(keys.header_key, copy + number_at + 4, mask))
        return -1;
    copy[0] = static_cast<uint8_t>(copy[0] ^ (mask[0] & 0x0F));
    size_t number_size = (copy[0] & 3u) + 1;
    std::array<uint8_t, 12> nonce = keys.iv;
    for (size_t i = 0; i < number_size; i++) {
        copy[number_at + i] ^= mask[1 + i];
        nonce[nonce.size() - number_size + i] ^= copy[number_at + i];
    }
    size_t header = number_at + number_size;
    if (from.whole.size < header + tag_size)
        return -1;
    return aes_gcm_open(keys.key, nonce, {copy, header}, {copy + header, from.whole.size - header}, plain);
}

void skip_ack(byte_reader *frames, bool with_ecn)
{
    read_varint(frames); // largest
    read_varint(frames); // delay
    uint64_t ranges = read_varint(frames);
    for (uint64_t i = 0; i <= ranges * 2 && !frames->failed; i++)
        read_varint(frames);
    for (int i = 0; i < 3 && with_ecn; i++)
        read_varint(frames);
}

quic_outcome take_frames(byte_view plain, stream_pieces *crypto)
{
    quic_outcome outcome = quic_outcome::nothing;
    byte_reader frames(plain);
    while (frames.left() > 0 && !frames.failed) {
        uint64_t type = read_varint(&frames);
        if (type == frame_ack || type == frame_ack_ecn) {
            skip_ack(&frames, type == frame_ack_ecn);
        } else if (type == frame_crypto) {
            uint64_t offset = read_varint(&frames);
            byte_view piece = frames.take(static_cast<size_t>(std::min<uint64_t>(read_varint(&frames), SIZE_MAX / 2)));
            if (frames.failed)
                return quic_outcome::unreadable;
            if (!crypto->add(static_cast<size_t>(std::min<uint64_t>(offset, most_stream_bytes)), piece))
                return quic_outcome::full;
            outcome = quic_outcome::taken;
        } else if (type != frame_padding && type != frame_ping) {
            break;
        }
    }
    return frames.failed ? quic_outcome::unreadable : outcome;
}

bool same_id(const quic_keys &keys, const long_packet &of)
{
    return keys.version == of.version && keys.id_size == of.id.size && memcmp(keys.id.data(), of.id.data, of.id.size) == 0;
}

// With the keys of the client's first packet; after a Retry, or where the first was not seen, with those of this one.
quic_outcome take_initial(const long_packet &initial, quic_keys *keys, stream_pieces *crypto)
{
    static uint8_t plain[largest_packet];
    int size = keys->version == initial.version ? open_packet(initial, *keys, plain) : -1;
    if (size < 0 && !same_id(*keys, initial)) {
        quic_keys fresh;
        if (derive_quic_keys(initial.version, initial.id, &fresh))
            size = open_packet(initial, fresh, plain);
        if (size >= 0 || keys->version == 0)
            *keys = fresh;
    }
    return size < 0 ? quic_outcome::unreadable : take_frames({plain, static_cast<size_t>(size)}, crypto);
}

} // namespace

quic_outcome read_quic_datagram(byte_view datagram, quic_keys *keys, stream_pieces *crypto)
{
    byte_reader header(datagram);
    bool is_long = (header.u8() & 0xC0) == 0xC0;
    bool is_known = find_quic_version(header.u32()) && !header.failed;
    if (!is_long || !(is_known || datagram.size >= least_initial))
        return quic_outcome::not_quic;
    quic_outcome outcome = quic_outcome::nothing;
    byte_reader reader(datagram);
    for (long_packet packet{}; next_packet(&reader, &packet);) {
        if (!packet.is_initial)
            continue;
        quic_outcome one = take_initial(packet, keys, crypto);
        if (one == quic_outcome::full)
            return one;
        if (one == quic_outcome::taken || outcome != quic_outcome::taken)
            outcome = one;
    }
    return outcome;
}
