#include "feed/printing.h"

#include "feed/ip_packet.h"

#include <inttypes.h>
#include <stdarg.h>
#include <stdio.h>
#include <time.h>

namespace {

constexpr uint64_t second_us = 1000000;

std::string format(const char *form, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char *form, ...)
{
    char text[1024];
    va_list arguments;
    va_start(arguments, form);
    int size = vsnprintf(text, sizeof(text), form, arguments);
    va_end(arguments);
    return std::string(text, size > 0 ? std::min(static_cast<size_t>(size), sizeof(text) - 1) : 0);
}

std::string json_host(const std::string &host)
{
    return host.empty() ? std::string() : ",\"host\":\"" + host + "\"";
}

std::string end_text(const ip_address &address, uint16_t port)
{
    std::string text = address_text(address);
    return (address.family == 6 ? "[" + text + "]" : text) + ":" + std::to_string(port);
}

const char *protocol_name(uint8_t protocol)
{
    return protocol == protocol_tcp ? "tcp" : "udp";
}

unsigned int share(uint64_t part, uint64_t whole)
{
    return whole == 0 ? 0 : static_cast<unsigned int>((part * 100 + whole / 2) / whole);
}

} // namespace

std::string hit_line(const hit &found, const app_entry &app)
{
    time_t seconds = static_cast<time_t>(found.time_us / second_us);
    tm local{};
    localtime_r(&seconds, &local);
    char clock[32] = "";
    strftime(clock, sizeof(clock), "%Y-%m-%d %H:%M:%S", &local);
    return format("%s %s %s%s %s %" PRIu64 " bytes by %s%s%s\n", clock, address_text(found.device).c_str(), app.name.c_str(),
                  found.is_call ? " call" : "", found.is_marked ? "marked" : "plain", found.up_bytes + found.down_bytes,
                  evidence_name(found.by), found.host.empty() ? "" : " ", found.host.c_str());
}

std::string hit_json(const hit &found, const app_entry &app)
{
    return format("{\"time\":%" PRIu64
                  ",\"device\":\"%s\",\"app\":\"%s\",\"app_id\":%u,\"marked\":%s,\"behavior\":%d,\"bytes\":%" PRIu64
                  ",\"up\":%" PRIu64 ",\"down\":%" PRIu64 ",\"evidence\":\"%s\"",
                  found.time_us / second_us, address_text(found.device).c_str(), app.name.c_str(), found.app,
                  found.is_marked ? "true" : "false", found.is_call ? 1 : 0, found.up_bytes + found.down_bytes, found.up_bytes,
                  found.down_bytes, evidence_name(found.by)) +
           json_host(found.host) + "}\n";
}

std::string flow_line(const flow_report &found, const app_entry *app)
{
    return format("%s %s %s %s %s %s %" PRIu64 "\n", protocol_name(found.key.protocol),
                  end_text(found.key.device, found.key.device_port).c_str(),
                  end_text(found.key.server, found.key.server_port).c_str(), app ? app->name.c_str() : "-",
                  app ? evidence_name(found.by) : "-", found.host.empty() ? "-" : found.host.c_str(),
                  found.up_bytes + found.down_bytes);
}

std::string flow_json(const flow_report &found, const app_entry *app)
{
    std::string text = format(
        "{\"time\":%" PRIu64 ",\"proto\":\"%s\",\"device\":\"%s\",\"device_port\":%u,\"server\":\"%s\",\"server_port\":%u",
        found.first_us / second_us, protocol_name(found.key.protocol), address_text(found.key.device).c_str(),
        found.key.device_port, address_text(found.key.server).c_str(), found.key.server_port);
    text +=
        app ? format(",\"app\":\"%s\",\"app_id\":%u,\"evidence\":\"%s\"", app->name.c_str(), app->id, evidence_name(found.by))
            : ",\"app\":null,\"app_id\":0,\"evidence\":null";
    return text + json_host(found.host) +
           format(",\"behavior\":%d,\"bytes\":%" PRIu64 ",\"up\":%" PRIu64 ",\"down\":%" PRIu64 "}\n", found.is_call ? 1 : 0,
                  found.up_bytes + found.down_bytes, found.up_bytes, found.down_bytes);
}

std::string summary_line(const feed_counters &counts)
{
    auto full =
        counts[feed_flow_table_full] + counts[feed_inspections_full] + counts[feed_device_table_full] + counts[feed_uses_full];
    return format("%" PRIu64 " packets; %" PRIu64 " flows: %" PRIu64 " told by hello, %" PRIu64 " by dns, %" PRIu64
                  " by dpi, %" PRIu64 " by address, %" PRIu64 " unknown (%u%% of flows, %u%% of bytes); %" PRIu64
                  " hellos without a name; hits: %" PRIu64 " marked, %" PRIu64 " plain, %" PRIu64
                  " of devices without IPv4, %" PRIu64 " sent; tables full %" PRIu64 " times\n",
                  counts[feed_packets], counts[feed_flows], counts[feed_flows_by_hello], counts[feed_flows_by_dns],
                  counts[feed_flows_by_dpi], counts[feed_flows_by_address], counts[feed_flows_unknown],
                  share(counts[feed_flows_unknown], counts[feed_flows]),
                  share(counts[feed_kbytes_unknown], counts[feed_kbytes_unknown] + counts[feed_kbytes_told]),
                  counts[feed_hellos_nameless], counts[feed_hits_marked], counts[feed_hits_plain], counts[feed_hits_not_told],
                  counts[feed_messages_sent], full);
}
