// The addresses in a DNS answer (A and AAAA, over CNAMEs), under the name that was asked for.
#ifndef FEED_DNS_ANSWER_H
#define FEED_DNS_ANSWER_H

#include "feed/address.h"
#include "feed/byte_view.h"

struct dns_address {
    ip_address address;
    uint32_t ttl; // seconds
};

struct dns_answer {
    std::string question;
    std::vector<dns_address> addresses; // at most most_dns_addresses
};
constexpr size_t most_dns_addresses = 32;

// One message, without the length that stands before it on TCP. False for what is no answer with addresses.
bool read_dns_answer(byte_view message, dns_answer *out);

#endif
