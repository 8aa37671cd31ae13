// The beginning of a byte stream whose pieces come in any order, more than once, and overlapping. What came first holds.
//
// Bounded twice: a stream keeps its first most_stream_bytes only, and all streams together stay within their budget.
#ifndef FEED_STREAM_PIECES_H
#define FEED_STREAM_PIECES_H

#include "feed/byte_view.h"

#include <vector>

constexpr size_t most_stream_bytes = 16384;
constexpr size_t most_stream_gaps = 128;

struct stream_budget {
    size_t limit = 4u << 20;
    size_t used = 0;
};

class stream_pieces {
public:
    explicit stream_pieces(stream_budget &shared) : budget(shared) {}
    ~stream_pieces() { budget.used -= bytes.size(); }
    stream_pieces(const stream_pieces &) = delete;
    stream_pieces &operator=(const stream_pieces &) = delete;

    // Bytes beyond the bounds are left out. False when the budget is used up or too many gaps stand open.
    bool add(size_t offset, byte_view piece);
    // Makes place for bytes before what was the beginning.
    bool move_back(size_t by);
    // From the beginning up to the first gap.
    byte_view beginning() const;
    bool empty() const { return ranges.empty(); }
    void clear();

private:
    struct range {
        size_t begin, end;
    };
    bool grow_to(size_t size);

    stream_budget &budget;
    std::vector<uint8_t> bytes;
    std::vector<range> ranges; // what is there, in order, never touching each other
};

#endif
