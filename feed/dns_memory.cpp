#include "feed/dns_memory.h"

#include <algorithm>

namespace {

// Programs keep addresses for longer than a short time to live says; a long one is no reason to keep them for days.
constexpr uint32_t least_ttl = 5 * 60;
constexpr uint32_t most_ttl = 60 * 60;
constexpr uint64_t second_us = 1000000;

} // namespace

void dns_memory::store(const question &of, const std::string &host, uint64_t now_us, uint64_t until_us)
{
    auto known = index.find(of);
    if (known != index.end()) {
        entry &old = *known->second;
        bool differs = of.device.family == 0 && old.host != host && old.until_us > now_us;
        old.host = differs ? std::string() : host;
        old.until_us = differs ? std::max(old.until_us, until_us) : until_us;
        entries.splice(entries.begin(), entries, known->second);
        return;
    }
    if (entries.size() >= limit) {
        index.erase(entries.back().of);
        entries.pop_back();
    }
    entries.push_front({of, host, until_us});
    index.emplace(of, entries.begin());
}

void dns_memory::remember(const ip_address &device, const dns_answer &answer, uint64_t now_us)
{
    for (const dns_address &one : answer.addresses) {
        if (is_special(one.address))
            continue;
        uint64_t until = now_us + std::clamp(one.ttl, least_ttl, most_ttl) * second_us;
        store({device, one.address}, answer.question, now_us, until);
        store({{}, one.address}, answer.question, now_us, until);
    }
}

const dns_memory::entry *dns_memory::live(const question &of, uint64_t now_us) const
{
    auto known = index.find(of);
    return known != index.end() && known->second->until_us > now_us ? &*known->second : nullptr;
}

std::string dns_memory::find(const ip_address &device, const ip_address &server, uint64_t now_us) const
{
    const entry *own = live({device, server}, now_us);
    const entry *any = own ? own : live({{}, server}, now_us);
    return any ? any->host : std::string();
}
