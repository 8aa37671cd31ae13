// Passes continuing hits through the daemon's own functions, in a function that callgrind counts by its name.
//
// usage: message_cost DEVICES MESSAGES     (scripts/count-instructions divides callgrind's sum by MESSAGES)
// As in the benchmark all apps of all devices are in use, and messages go round the devices and round the apps of each.
#include "appident/app_ident.h"
#include "appident/event_loop.h"
#include "appident/model/device_list.h"
#include "common/log.h"
#include "common/mac_text.h"
#include "simulator/world/kernel_messages.h"

#include <algorithm>
#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <vector>

using message = std::vector<unsigned char>;

extern "C" __attribute__((noinline)) void pass_counted_messages(message *messages, size_t count)
{
    for (message *bytes = messages; bytes != messages + count; bytes++)
        dispatch_traffic_message(bytes->data(), static_cast<ssize_t>(bytes->size()));
}

namespace {

constexpr u32 apps_in_use = 110, first_app = 1000, rule = 4711, bytes_of_a_hit = 1400;

std::vector<message> hits_of_all(u32 devices, u32 mark)
{
    std::vector<message> messages;
    for (u32 app = 0; app < apps_in_use; app++) {
        for (u32 device = 0; device < devices; device++) {
            std::string address = "10.77." + std::to_string(1 + device / 200) + "." + std::to_string(1 + device % 200);
            messages.push_back(accounting_message(
                {application_word(first_app + app), mark | rule, 3, address, "203.0.113.9", bytes_of_a_hit, bytes_of_a_hit}));
        }
    }
    return messages;
}

void link_devices(u32 devices)
{
    for (u32 device = 0; device < devices; device++) {
        auto network = static_cast<unsigned char>(1 + device / 200), host = static_cast<unsigned char>(1 + device % 200);
        unsigned char mac[6] = {0x02, 0x00, 0x5E, 0x00, network, host};
        char text[mac_text_size];
        write_mac_text(mac, text);
        link_device(allocate_device_record(text));
    }
}

// A hit in the second of its session's start is not recorded whole.
void let_sessions_grow()
{
    list_for_each(node, &device_apps_head)
        for (app_ident_record &app : device_of(node)->apps)
            app.start_time -= 30;
}

u64 bytes_recorded()
{
    u64 bytes = 0;
    list_for_each(node, &device_apps_head)
        for (const app_ident_record &app : device_of(node)->apps)
            bytes += app.up_bytes;
    return bytes;
}

} // namespace

int main(int words, char **word)
{
    if (words != 3)
        return 2;
    u32 devices = static_cast<u32>(atoi(word[1]));
    size_t wanted = static_cast<size_t>(atol(word[2]));
    log_file = "/dev/null";
    url_check_init();
    link_devices(devices);
    for (message &opening : hits_of_all(devices, start_mark))
        dispatch_traffic_message(opening.data(), static_cast<ssize_t>(opening.size()));
    let_sessions_grow();
    // Each rule is new once; that is not what a message costs.
    std::vector<message> messages = hits_of_all(devices, 0);
    for (message &first : messages)
        dispatch_traffic_message(first.data(), static_cast<ssize_t>(first.size()));

    u64 before = bytes_recorded();
    for (size_t left = wanted; left > 0;) {
        size_t count = std::min(left, messages.size());
        pass_counted_messages(messages.data(), count);
        left -= count;
    }
    bool all_recorded = bytes_recorded() - before == bytes_of_a_hit * wanted;
    puts(all_recorded ? "every hit reached its record" : "hits were lost");
    return all_recorded ? 0 : 1;
}
