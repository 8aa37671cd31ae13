// A household to tell stories about: devices that arrive, use apps and leave, while the periodic pass runs every 3 seconds.
//
// Traffic and router events go in as bytes through the daemon's own handlers; what comes out is compared as whole lines
// (see scripted_platform.h). Stories begin at 20:00:00 UTC on an evening, with an empty device list, an empty configuration
// directory and an empty log.
#ifndef TESTS_KIT_HOUSEHOLD_H
#define TESTS_KIT_HOUSEHOLD_H

#include "appident/app_ident.h"
#include "tests/kit/scripted_clock.h"
#include "tests/kit/scripted_platform.h"

#include <gtest/gtest.h>
#include <utility>

using lines = std::vector<std::string>;

constexpr u32 evening = 1773172800;

struct lan_device {
    const char *mac;
    const char *ip;
};
constexpr lan_device tablet{"02-00-00-00-00-0A", "192.168.1.11"};
constexpr lan_device phone{"02-00-00-00-00-0B", "192.168.1.12"};
constexpr lan_device laptop{"02-00-00-00-00-0C", "192.168.1.13"};

enum hit_kind : u32 { more = 0, start = 0x1000000 }; // the start mark of a rule id
struct hit_details {
    u32 up = 100, down = 1000, rule = 7, behavior = 0;
};

constexpr u32 app_word(u32 app, u32 behavior = 0, u32 vendor = 1)
{
    return app << 15 | behavior << 7 | vendor;
}

// Netlink bytes: a value in host order, an attribute, a message of netfilter's type with an empty nfgenmsg.
template <typename value> std::string bytes_of(const value &v)
{
    return std::string(reinterpret_cast<const char *>(&v), sizeof v);
}
std::string attribute(int type, const std::string &payload);
std::string netlink_message(int type, const std::string &attributes);
std::string tuple(const char *src, const char *dst, u32 bytes);
std::string accounting_message(u32 word, u32 rule, const char *src, u32 up, u32 down);
// Messages of the router's kernel.
std::string host_message(int action, const std::string &mac);
std::string app_message(int action, u32 word, u32 rule, const std::string &mac, u32 ip);

// What is expected to leave the daemon; times are epoch seconds.
std::string status(int status, u32 app, u32 at, const lan_device &device = tablet);
// The JSON object of a 1023 push, and the push of that one object.
std::string presence_object(const char *state, u32 app, u32 from, u32 to, u32 minutes, const lan_device &device = tablet);
std::string presence(const char *state, u32 app, u32 from, u32 to, u32 minutes, const lan_device &device = tablet);
std::string history(u32 app, u32 seconds, u64 up, u64 down, const std::string &rules, const lan_device &device = tablet,
                    unsigned long occur_time = 0);

// What left the daemon since the last look, in order.
#define EXPECT_SENT(...) EXPECT_EQ(sent(), (lines{__VA_ARGS__}))

class household : public ::testing::Test {
protected:
    household();
    ~household() override;

    // The world. A device must be known to the platform before it arrives.
    void know(const lan_device &device, const char *role = "1");
    device_record *arrive(const lan_device &device, const char *role = "1"); // known, and announced by the router
    void leave(const lan_device &device) { feed_router(host_message(2, device.mac)); }
    void hit(u32 app, hit_kind kind, hit_details details = {}, const lan_device &device = tablet);
    void wait(u32 seconds); // second by second, with a pass each third
    void wait_until(u32 moment) { wait(moment - static_cast<u32>(clock_now())); }
    void tick(); // one pass now
    int feed_traffic(const std::string &datagram);
    int feed_router(const std::string &message);

    // The records, found without the daemon's help; null when there is none.
    static device_record *record(const lan_device &device);
    static app_ident_record *app(u32 id, const lan_device &device = tablet);
    // "using 3/2 axis 2/1 up 100 hits 1 0 2": state, period/sum, whether on the time axis, its period/sum, bytes, window.
    static std::string brief(u32 id, const lan_device &device = tablet);

    // What happened since the last call.
    static lines sent() { return std::exchange(platform.outgoing, {}); }
    static lines asked() // of the router's services
    {
        std::exchange(platform.locked, {});
        return std::exchange(platform.calls, {});
    }
    void forget() { sent(), asked(), logged(); }
    lines logged(); // without time stamps; a text with line feeds gives several lines

    std::string directory;
    tick_state ticking;

private:
    std::string log_path;
    size_t log_read = 0;
    u32 since_tick = 0;
    int traffic[2];
};

#endif
