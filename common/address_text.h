// IPv4 addresses as dotted texts, both ways. Written here because inet_ntop and inet_aton cost more than all else that is done
// with a message.
#ifndef COMMON_ADDRESS_TEXT_H
#define COMMON_ADDRESS_TEXT_H

#include "igd/igd_types.h"

// Writes four bytes, first byte first, as "%u.%u.%u.%u"; text has room for 16 characters.
void write_address_text(const unsigned char *bytes, char *text);
// The address (network order) of a text, read as inet_aton reads it; 0 for a text that is no address.
u32 read_address_text(const char *text);

#endif
