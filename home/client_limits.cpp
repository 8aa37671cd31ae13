#include "home/client_limits.h"

#include <algorithm>

namespace {

constexpr size_t clients_most = 1024;
// The page asks a dozen things when it opens, and some again with each event.
constexpr double requests_at_once = 200, requests_a_second = 20;
constexpr double checks_at_once = 10, checks_a_second = 1;
constexpr int wrong_most = 5;
constexpr int64_t locked_ms = 15 * 60000;

// What was left, and what has come since, up to a bound.
double refilled(double left, double a_second, int64_t ms, double most)
{
    return std::min(most, left + a_second * static_cast<double>(ms) / 1000);
}

bool is_wrong_lately(const client_record &one, int64_t now_ms)
{
    return one.wrong > 0 && now_ms - one.wrong_ms < locked_ms;
}

client_record &record_of(client_limits *limits, const std::string &client, int64_t now_ms)
{
    auto entry = limits->clients.find(client);
    if (entry != limits->clients.end())
        return entry->second;
    if (limits->clients.size() >= clients_most) {
        // Who was wrong lately stays rather than who was not.
        auto oldest = std::min_element(limits->clients.begin(), limits->clients.end(), [&](const auto &one, const auto &other) {
            bool wrong = is_wrong_lately(one.second, now_ms), other_wrong = is_wrong_lately(other.second, now_ms);
            return wrong != other_wrong ? other_wrong : one.second.counted_ms < other.second.counted_ms;
        });
        limits->clients.erase(oldest);
    }
    client_record fresh;
    fresh.requests = requests_at_once;
    fresh.counted_ms = now_ms;
    return limits->clients.emplace(client, fresh).first->second;
}

} // namespace

bool may_ask(client_limits *limits, const std::string &client, int64_t now_ms)
{
    client_record &one = record_of(limits, client, now_ms);
    one.requests = refilled(one.requests, requests_a_second, now_ms - one.counted_ms, requests_at_once);
    one.counted_ms = now_ms;
    if (one.requests < 1)
        return false;
    one.requests -= 1;
    return true;
}

bool may_check_password(client_limits *limits, int64_t now_ms)
{
    bool first = limits->checks_counted_ms == 0;
    limits->checks =
        first ? checks_at_once : refilled(limits->checks, checks_a_second, now_ms - limits->checks_counted_ms, checks_at_once);
    limits->checks_counted_ms = now_ms;
    if (limits->checks < 1)
        return false;
    limits->checks -= 1;
    return true;
}

int64_t locked_out_for(const client_limits &limits, const std::string &client, int64_t now_ms)
{
    auto entry = limits.clients.find(client);
    if (entry == limits.clients.end() || entry->second.wrong < wrong_most)
        return 0;
    int64_t left = entry->second.wrong_ms + locked_ms - now_ms;
    return left > 0 ? (left + 999) / 1000 : 0;
}

void note_password(client_limits *limits, const std::string &client, bool right, int64_t now_ms)
{
    client_record &one = record_of(limits, client, now_ms);
    if (right || !is_wrong_lately(one, now_ms))
        one.wrong = 0;
    if (right)
        return;
    one.wrong++;
    one.wrong_ms = now_ms;
}
