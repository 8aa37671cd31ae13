// Where the IP packet begins in a captured frame.
#ifndef FEED_LINK_LAYER_H
#define FEED_LINK_LAYER_H

#include "feed/byte_view.h"
#include "feed/packet.h"

struct link_frame {
    byte_view ip;
    size_t header; // bytes before it
    bool has_mac;
    uint8_t mac[6]; // the sender's
    bool has_to_mac;
    uint8_t to_mac[6]; // the receiver's
};

// `type` is libpcap's DLT_ number: Ethernet (with VLAN tags and PPPoE), Linux cooked 1 and 2, raw IP, BSD loopback.
bool is_known_link_type(int type);
// False when the frame carries no IP.
bool find_ip(int type, byte_view frame, link_frame *out);
// The packet in a frame of `length` bytes on the wire. Its time is left alone.
void fill_packet(const link_frame &frame, uint32_t length, packet *out);

#endif
