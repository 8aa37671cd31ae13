// By what an app was told, the surest first.
#ifndef FEED_EVIDENCE_H
#define FEED_EVIDENCE_H

#include <stdint.h>

enum class evidence : uint8_t { none, hello, dns, dpi, address };

constexpr const char *evidence_names[] = {"none", "hello", "dns", "dpi", "address"};

constexpr const char *evidence_name(evidence of)
{
    return evidence_names[static_cast<unsigned int>(of)];
}

#endif
