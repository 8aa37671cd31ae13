// Host names as the feed keeps them: lower case, without a dot at the end, of letters, digits, '-', '_' and '.' only. What
// stands on the network may be anything; a name of other characters is as good as none, and goes into no output.
#ifndef FEED_HOST_NAME_H
#define FEED_HOST_NAME_H

#include "feed/byte_view.h"

#include <string>

constexpr size_t longest_host_name = 253;

// Empty when the bytes are no usable name; an address in digits is none either.
std::string host_name_of(byte_view bytes);

#endif
