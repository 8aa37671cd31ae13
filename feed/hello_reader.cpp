#include "feed/hello_reader.h"

namespace {

// A hello that is not whole after so many packets of the client never will be.
constexpr int most_payloads = 12;
// Without the SYN, what seems to be the beginning may only be what came first.
constexpr int payloads_in_any_order = 4;

} // namespace

hello_answer hello_reader::take(const ip_packet &packet)
{
    hello_answer answer = packet.protocol == protocol_tcp ? take_tcp(packet) : take_udp(packet);
    if (packet.payload.size > 0)
        payloads++;
    if (answer.outcome == hello_outcome::needs_more && payloads >= most_payloads)
        answer.outcome = hello_outcome::none;
    if (answer.outcome != hello_outcome::needs_more)
        pieces.clear();
    return answer;
}

hello_answer hello_reader::take_tcp(const ip_packet &packet)
{
    uint32_t sequence = packet.sequence;
    if (packet.tcp_flags & tcp_syn) {
        first_sequence = ++sequence;
        has_sequence = has_syn = true;
        pieces.clear();
    }
    if (packet.payload.size == 0)
        return {};
    if (!has_sequence) {
        first_sequence = sequence;
        has_sequence = true;
    }
    auto distance = static_cast<int32_t>(sequence - first_sequence);
    if (distance < 0) {
        // A keep-alive repeats the byte before; without the SYN it may be the real beginning that comes late.
        if (has_syn || distance < -static_cast<int32_t>(most_stream_bytes) || !pieces.move_back(static_cast<size_t>(-distance)))
            return {};
        first_sequence = sequence;
        distance = 0;
    }
    if (!pieces.add(static_cast<size_t>(distance), packet.payload))
        return {hello_outcome::none, {}};
    hello_answer answer = read_client_stream(pieces.beginning());
    if (answer.outcome == hello_outcome::none && !has_syn && payloads < payloads_in_any_order)
        return {};
    amid = answer.outcome == hello_outcome::needs_more;
    return answer;
}

hello_answer hello_reader::take_udp(const ip_packet &packet)
{
    if (packet.payload.size == 0)
        return {};
    switch (read_quic_datagram(packet.payload, &keys, &pieces)) {
    case quic_outcome::taken:
        amid = true;
        return read_client_hello(pieces.beginning());
    case quic_outcome::nothing:
        return {};
    case quic_outcome::unreadable:
        return {hello_outcome::needs_more, {}, true};
    case quic_outcome::not_quic:
        // A QUIC client's later packets have a short header.
        return {keys.version != 0 ? hello_outcome::needs_more : hello_outcome::none, {}};
    case quic_outcome::full:
        break;
    }
    return {hello_outcome::none, {}};
}
