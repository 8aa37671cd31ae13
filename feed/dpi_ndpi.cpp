#include "feed/dpi.h"

#include <algorithm>
#include <ndpi_api.h>
#include <string.h>

struct dpi_engine::dpi_module {
    ndpi_detection_module_struct *ndpi = nullptr;
    std::vector<app_rule> rules;     // by protocol number
    std::vector<bool> name_services; // protocols that only ask for names, whatever they ask for

    const app_rule *rule(uint16_t protocol) const
    {
        return protocol < rules.size() && rules[protocol].id != 0 ? &rules[protocol] : nullptr;
    }
};

// The flow's record is allocated behind by nDPI's own size.
struct dpi_flow {
    ndpi_flow_struct *record;
};

namespace {

constexpr const char *name_service_names[] = {"DNS", "MDNS", "LLMNR", "NetBIOS"};

} // namespace

void dpi_flow_release::operator()(dpi_flow *flow) const
{
    ndpi_free_flow(flow->record);
    delete flow;
}

dpi_engine::dpi_engine(bool is_wanted) : module(is_wanted ? new dpi_module : nullptr)
{
    if (!module)
        return;
    module->ndpi = ndpi_init_detection_module(ndpi_dont_load_tor_hosts);
    if (!module->ndpi) {
        delete module;
        module = nullptr;
        return;
    }
    NDPI_PROTOCOL_BITMASK all;
    NDPI_BITMASK_SET_ALL(all);
    ndpi_set_protocol_detection_bitmask2(module->ndpi, &all);
    ndpi_finalize_initialization(module->ndpi);
}

dpi_engine::~dpi_engine()
{
    if (module)
        ndpi_exit_detection_module(module->ndpi);
    delete module;
}

void dpi_engine::set_catalogue(const app_catalogue &catalogue)
{
    if (!module)
        return;
    size_t count = ndpi_get_num_supported_protocols(module->ndpi);
    module->rules.assign(count, {0, false, false});
    module->name_services.assign(count, false);
    for (size_t i = 0; i < count; i++) {
        const char *name = ndpi_get_proto_name(module->ndpi, static_cast<uint16_t>(i));
        if (!name)
            continue;
        if (const app_rule *rule = catalogue.by_ndpi_name(name))
            module->rules[i] = *rule;
        module->name_services[i] = std::any_of(std::begin(name_service_names), std::end(name_service_names),
                                               [&](const char *other) { return strcmp(name, other) == 0; });
    }
}

std::string dpi_engine::version()
{
    return std::string("nDPI ") + ndpi_revision();
}

// An address list or a port alone is no evidence here: nDPI's networks hold several services.
const app_rule *dpi_engine::rule_of(dpi_flow *flow, uint16_t master, uint16_t app) const
{
    if (flow->record->confidence != NDPI_CONFIDENCE_DPI && flow->record->confidence != NDPI_CONFIDENCE_DPI_CACHE)
        return nullptr;
    if (master < module->name_services.size() && module->name_services[master])
        return nullptr;
    const app_rule *rule = module->rule(app);
    return rule ? rule : module->rule(master);
}

const app_rule *dpi_engine::inspect(dpi_flow_ptr *flow, const ip_packet &packet, uint64_t time_us)
{
    if (!module)
        return nullptr;
    if (!*flow) {
        auto *record = static_cast<ndpi_flow_struct *>(ndpi_flow_malloc(SIZEOF_FLOW_STRUCT));
        if (!record)
            return nullptr;
        memset(record, 0, SIZEOF_FLOW_STRUCT);
        flow->reset(new dpi_flow{record});
    }
    auto size = static_cast<uint16_t>(std::min<size_t>(packet.whole.size, UINT16_MAX));
    ndpi_protocol found = ndpi_detection_process_packet(module->ndpi, (*flow)->record, packet.whole.data, size, time_us / 1000);
    return rule_of(flow->get(), found.master_protocol, found.app_protocol);
}

const app_rule *dpi_engine::give_up(dpi_flow *flow)
{
    if (!module || !flow)
        return nullptr;
    uint8_t guessed = 0;
    ndpi_protocol found = ndpi_detection_giveup(module->ndpi, flow->record, 0, &guessed);
    return guessed ? nullptr : rule_of(flow, found.master_protocol, found.app_protocol);
}

const app_rule *dpi_engine::by_host(const std::string &host)
{
    if (!module)
        return nullptr;
    std::string text = host; // nDPI takes a text that it may write to
    ndpi_protocol_match_result match{};
    int protocol = ndpi_match_string_subprotocol(module->ndpi, text.data(), static_cast<unsigned int>(text.size()), &match);
    return protocol > 0 ? module->rule(static_cast<uint16_t>(protocol)) : nullptr;
}
