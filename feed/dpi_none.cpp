// The engine of a build without nDPI.
#include "feed/dpi.h"

struct dpi_flow {};

void dpi_flow_release::operator()(dpi_flow *flow) const
{
    delete flow;
}

dpi_engine::dpi_engine(bool) : module(nullptr) {}
dpi_engine::~dpi_engine() = default;

void dpi_engine::set_catalogue(const app_catalogue &) {}

std::string dpi_engine::version()
{
    return "built without nDPI";
}

const app_rule *dpi_engine::inspect(dpi_flow_ptr *, const ip_packet &, uint64_t)
{
    return nullptr;
}

const app_rule *dpi_engine::give_up(dpi_flow *)
{
    return nullptr;
}

const app_rule *dpi_engine::by_host(const std::string &)
{
    return nullptr;
}
