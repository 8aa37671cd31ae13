// nDPI, or nothing where the feed was built without it. Its protocols count by name, as their numbers change between versions.
// Not thread-safe.
#ifndef FEED_DPI_H
#define FEED_DPI_H

#include "feed/app_catalogue.h"
#include "feed/ip_packet.h"

#include <memory>

// What nDPI remembers of one flow while it is inspected.
struct dpi_flow;
struct dpi_flow_release {
    void operator()(dpi_flow *flow) const;
};
using dpi_flow_ptr = std::unique_ptr<dpi_flow, dpi_flow_release>;

// Packets with payload after which a flow is given up: more of them hardly ever tell more.
constexpr int dpi_payload_packets = 12;

class dpi_engine {
public:
    // Where it is not wanted or does not start, the engine tells nothing.
    explicit dpi_engine(bool is_wanted);
    ~dpi_engine();
    dpi_engine(const dpi_engine &) = delete;
    dpi_engine &operator=(const dpi_engine &) = delete;

    // Which of nDPI's names stand for apps.
    void set_catalogue(const app_catalogue &catalogue);
    bool is_working() const { return module != nullptr; }
    // nDPI's version, or why there is none.
    static std::string version();

    // One packet with payload of a flow; the flow's memory is made at the first. Null while nothing is known.
    const app_rule *inspect(dpi_flow_ptr *flow, const ip_packet &packet, uint64_t time_us);
    // The last word on a flow that ended early or had its packets.
    const app_rule *give_up(dpi_flow *flow);
    // By nDPI's own list of names.
    const app_rule *by_host(const std::string &host);

private:
    struct dpi_module;
    const app_rule *rule_of(dpi_flow *flow, uint16_t master, uint16_t app) const;
    dpi_module *module;
};

#endif
