#include "feed/stream_pieces.h"

#include <algorithm>
#include <string.h>

bool stream_pieces::grow_to(size_t size)
{
    if (size <= bytes.size())
        return true;
    size_t more = size - bytes.size();
    if (budget.used + more > budget.limit)
        return false;
    budget.used += more;
    bytes.resize(size);
    return true;
}

bool stream_pieces::add(size_t offset, byte_view piece)
{
    if (offset >= most_stream_bytes || piece.size == 0)
        return true;
    size_t end = offset + std::min(piece.size, most_stream_bytes - offset);
    if (ranges.size() >= most_stream_gaps || !grow_to(end))
        return false;
    // Between the ranges that are there, the new bytes fill the gaps.
    size_t at = offset;
    for (const range &known : ranges) {
        if (known.end <= at)
            continue;
        if (known.begin >= end)
            break;
        if (known.begin > at)
            memcpy(&bytes[at], piece.data + (at - offset), known.begin - at);
        at = known.end;
    }
    if (at < end)
        memcpy(&bytes[at], piece.data + (at - offset), end - at);

    auto first = std::find_if(ranges.begin(), ranges.end(), [&](const range &known) { return known.end >= offset; });
    auto last = std::find_if(first, ranges.end(), [&](const range &known) { return known.begin > end; });
    range joined{offset, end};
    if (first != last) {
        joined.begin = std::min(joined.begin, first->begin);
        joined.end = std::max(joined.end, (last - 1)->end);
    }
    ranges.insert(ranges.erase(first, last), joined);
    return true;
}

bool stream_pieces::move_back(size_t by)
{
    if (bytes.size() + by > most_stream_bytes)
        return false;
    size_t old = bytes.size();
    if (!grow_to(old + by))
        return false;
    std::move_backward(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(old), bytes.end());
    for (range &known : ranges) {
        known.begin += by;
        known.end += by;
    }
    return true;
}

byte_view stream_pieces::beginning() const
{
    if (ranges.empty() || ranges.front().begin != 0)
        return {};
    return {bytes.data(), ranges.front().end};
}

void stream_pieces::clear()
{
    budget.used -= bytes.size();
    std::vector<uint8_t>().swap(bytes);
    ranges.clear();
}
