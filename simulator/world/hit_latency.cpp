#include "simulator/world/hit_latency.h"

#include "common/guards.h"
#include "simulator/world/household_files.h"
#include "simulator/world/kernel_messages.h"

#include <algorithm>
#include <chrono>
#include <poll.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

constexpr int most_wait_ms = 10000;

// Until a line tells of the app.
bool told_of(int subscriber, u32 app)
{
    const std::string words = "\"app_id\":" + std::to_string(app) + ",";
    std::string text;
    for (pollfd ready = {subscriber, POLLIN, 0}; poll(&ready, 1, most_wait_ms) == 1;) {
        char piece[65536];
        ssize_t got = recv(subscriber, piece, sizeof(piece), 0);
        if (got <= 0)
            return false;
        text.append(piece, static_cast<size_t>(got));
        if (text.find(words) != std::string::npos)
            return true;
    }
    return false;
}

} // namespace

int subscribe_to_pushes()
{
    fd_guard fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (std::string(runtime_directory) + "/pushes.sock").copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0)
        return fd.release();
    perror(address.sun_path);
    return -1;
}

long long time_of_hit(int sender, int subscriber, const std::string &ip, u32 app)
{
    using std::chrono::steady_clock;
    std::vector<unsigned char> message =
        accounting_message({application_word(app), start_mark | 7, 0, ip, "203.0.113.9", 1, 1});
    steady_clock::time_point sent = steady_clock::now();
    if (!multicast(sender, group_new, message.data(), message.size()) || !told_of(subscriber, app))
        return -1;
    return std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - sent).count();
}

long long percentile(std::vector<long long> values, size_t of_hundred)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[std::min(values.size() - 1, values.size() * of_hundred / 100)];
}
