// The first words of one flow's client, read packet by packet until they tell a name or turn out to be something else.
#ifndef FEED_HELLO_READER_H
#define FEED_HELLO_READER_H

#include "feed/client_hello.h"
#include "feed/ip_packet.h"
#include "feed/quic_initial.h"
#include "feed/stream_pieces.h"

class hello_reader {
public:
    explicit hello_reader(stream_budget &budget) : pieces(budget) {}

    // A packet of the client, handshake packets of TCP included. Not called again after an outcome other than needs_more.
    hello_answer take(const ip_packet &packet);
    // What came so far is the beginning of a hello.
    bool is_amid() const { return amid; }

private:
    hello_answer take_tcp(const ip_packet &packet);
    hello_answer take_udp(const ip_packet &packet);

    stream_pieces pieces;
    quic_keys keys;
    uint32_t first_sequence = 0; // of the stream's first byte
    bool has_sequence = false;
    bool has_syn = false; // first_sequence is certain
    int payloads = 0;
    bool amid = false;
};

#endif
