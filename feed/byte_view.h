// Bytes that somebody else owns, and a reader over them that never leaves them: a read beyond the end gives zeros and sets
// `failed`. Integers are in network order.
#ifndef FEED_BYTE_VIEW_H
#define FEED_BYTE_VIEW_H

#include <stddef.h>
#include <stdint.h>

struct byte_view {
    const uint8_t *data = nullptr;
    size_t size = 0;

    // From `at` on, at most `most` bytes; empty where nothing is left.
    byte_view part(size_t at, size_t most = SIZE_MAX) const
    {
        if (at >= size)
            return {};
        size_t left = size - at;
        return {data + at, left < most ? left : most};
    }
};

struct byte_reader {
    byte_view bytes;
    size_t at = 0;
    bool failed = false;

    explicit byte_reader(byte_view view) : bytes(view) {}

    size_t left() const { return bytes.size - at; }

    byte_view take(size_t count)
    {
        if (failed || count > left()) {
            failed = true;
            return {};
        }
        byte_view taken{bytes.data + at, count};
        at += count;
        return taken;
    }
    void skip(size_t count) { take(count); }

    uint64_t number(unsigned int size)
    {
        byte_view taken = take(size);
        uint64_t value = 0;
        for (size_t i = 0; i < taken.size; i++)
            value = value << 8 | taken.data[i];
        return value;
    }
    uint8_t u8() { return static_cast<uint8_t>(number(1)); }
    uint16_t u16() { return static_cast<uint16_t>(number(2)); }
    uint32_t u24() { return static_cast<uint32_t>(number(3)); }
    uint32_t u32() { return static_cast<uint32_t>(number(4)); }
};

#endif
