// What a source gives to the classifier: one IP packet.
#ifndef FEED_PACKET_H
#define FEED_PACKET_H

#include <stdint.h>

struct packet {
    uint64_t time_us;     // epoch microseconds, of the capture or now
    const uint8_t *bytes; // from the IP header on
    uint32_t captured;    // so many of them are there,
    uint32_t length;      // of so many on the wire
    bool has_mac;
    uint8_t mac[6]; // the sender's on the link; of use only where that sender is a device of the LAN
    bool has_to_mac;
    uint8_t to_mac[6]; // the receiver's on the link, likewise
};

#endif
