// Which name a device asked for before it got an address. A fixed number of entries; the oldest makes place.
//
// The same address may serve many names (a delivery network), so a device's own question goes first, and the questions of
// others count only where they all agree.
#ifndef FEED_DNS_MEMORY_H
#define FEED_DNS_MEMORY_H

#include "feed/dns_answer.h"

#include <list>
#include <unordered_map>

class dns_memory {
public:
    explicit dns_memory(size_t most_entries) : limit(most_entries) {}

    void remember(const ip_address &device, const dns_answer &answer, uint64_t now_us);
    // Empty when nothing, or nothing certain, is known.
    std::string find(const ip_address &device, const ip_address &server, uint64_t now_us) const;
    size_t size() const { return entries.size(); }

private:
    struct question {
        ip_address device; // none: whichever device
        ip_address server;
    };
    struct entry {
        question of;
        std::string host; // empty: names that differ
        uint64_t until_us;
    };
    struct question_hash {
        size_t operator()(const question &of) const { return static_cast<size_t>(hash_of(of.server, hash_of(of.device))); }
    };
    struct question_equal {
        bool operator()(const question &a, const question &b) const { return a.device == b.device && a.server == b.server; }
    };
    void store(const question &of, const std::string &host, uint64_t now_us, uint64_t until_us);
    const entry *live(const question &of, uint64_t now_us) const;

    size_t limit;
    std::list<entry> entries; // the newest first
    std::unordered_map<question, std::list<entry>::iterator, question_hash, question_equal> index;
};

#endif
