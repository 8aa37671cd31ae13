#include "feed/ring_block.h"

#include <linux/if_packet.h>
#include <string.h>

namespace {

static_assert(sizeof(tpacket_hdr_v1) == 40 && sizeof(tpacket3_hdr) == 48, "as the kernel writes them");
constexpr size_t block_header_at = offsetof(tpacket_block_desc, hdr);

// A copy: what is read may lie anywhere.
template <typename header> bool read_header(byte_view bytes, size_t at, header *out)
{
    byte_view found = bytes.part(at, sizeof(*out));
    if (found.size < sizeof(*out))
        return false;
    memcpy(out, found.data, sizeof(*out));
    return true;
}

} // namespace

ring_block::ring_block(byte_view block) : bytes(block)
{
    tpacket_hdr_v1 header{};
    if (!read_header(block, block_header_at, &header))
        return;
    bytes = block.part(0, header.blk_len);
    at = header.offset_to_first_pkt;
    left = header.num_pkts;
}

bool ring_block::next(ring_frame *out)
{
    tpacket3_hdr header{};
    if (left == 0 || !read_header(bytes, at, &header))
        return false;
    byte_view frame = bytes.part(at).part(header.tp_mac);
    if (header.tp_mac < sizeof(header) || frame.size < header.tp_snaplen || header.tp_len < header.tp_snaplen)
        return false;
    *out = {frame.part(0, header.tp_snaplen), header.tp_len, header.tp_sec, header.tp_nsec / 1000};
    left--;
    if (left == 0)
        return true;
    // Always forward, so that it ends.
    if (header.tp_next_offset < sizeof(header))
        at = bytes.size;
    else
        at += header.tp_next_offset;
    return true;
}
