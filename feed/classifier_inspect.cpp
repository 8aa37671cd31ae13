// How a flow's app is found: the hello's name, a DNS answer, nDPI, a network of one service.
#include "feed/classifier.h"

#include <algorithm>

namespace {

// Ports of services that find names and hosts. nDPI would take a question for an app's name for use of the app.
constexpr uint16_t service_ports[] = {53, 67, 68, 123, 137, 138, 546, 547, 853, 1900, 5353, 5355};

bool is_service_port(uint16_t port)
{
    return std::find(std::begin(service_ports), std::end(service_ports), port) != std::end(service_ports);
}

} // namespace

bool classifier::start_looking(flow *one)
{
    // A device that opens connections without end must not take the memory that the others' need.
    if (inspections >= options.most_inspections || one->device->inspections >= options.most_inspections / 4) {
        counts[feed_inspections_full]++;
        give_up(one);
        return false;
    }
    one->looking = std::make_unique<inspection>(hello_memory);
    one->device->inspections++;
    inspections++;
    if (one->has_syn) {
        ip_packet syn{};
        syn.protocol = protocol_tcp;
        syn.tcp_flags = tcp_syn;
        syn.sequence = one->syn_sequence;
        one->looking->hello.take(syn);
    }
    return true;
}

void classifier::stop_looking(flow *one)
{
    if (!one->looking)
        return;
    one->looking.reset();
    one->device->inspections--;
    inspections--;
}

void classifier::decide(flow *one, const app_rule *rule, evidence by)
{
    stop_looking(one);
    one->is_decided = true;
    if (rule && rule->id != 0) {
        one->app = rule->id;
        one->is_call = rule->is_call;
        one->is_embedded = rule->is_embedded;
        one->by = by;
        counts[feed_flows_by_hello + static_cast<unsigned int>(by) - static_cast<unsigned int>(evidence::hello)]++;
    } else {
        counts[feed_flows_unknown]++;
    }
}

void classifier::take_hello(flow *one, const hello_answer &answer)
{
    if (answer.is_unreadable_quic)
        counts[feed_quic_unreadable]++;
    if (answer.outcome == hello_outcome::needs_more)
        return;
    one->looking->hello_done = true;
    if (answer.outcome == hello_outcome::named) {
        one->host = answer.host;
        one->by = evidence::hello;
        if (const app_rule *rule = apps.by_host(answer.host))
            return decide(one, rule, evidence::hello);
        // The name is all that nDPI would find, too.
        const app_rule *rule = dpi.by_host(answer.host);
        if (!rule)
            return give_up(one);
        return decide(one, rule, evidence::dpi);
    }
    if (answer.outcome == hello_outcome::nameless)
        counts[feed_hellos_nameless]++;
    take_dns_evidence(one);
}

// True when the flow is decided.
bool classifier::take_dns_evidence(flow *one)
{
    ip_address asked = devices.told_as(one->device)->address;
    std::string host = names.find(asked, one->key.server, one->last_us);
    if (host.empty())
        return false;
    one->host = host;
    one->by = evidence::dns;
    const app_rule *rule = apps.by_host(host);
    if (!rule)
        return false;
    decide(one, rule, evidence::dns);
    return true;
}

void classifier::give_up(flow *one)
{
    if (one->is_decided)
        return;
    // Attempts without a word of content tell of no app, wherever they went.
    if (!one->has_payload)
        return decide(one, nullptr, evidence::none);
    if (one->by == evidence::none && take_dns_evidence(one))
        return;
    const app_rule *rule = one->looking && one->looking->dpi ? dpi.give_up(one->looking->dpi.get()) : nullptr;
    if (rule)
        return decide(one, rule, evidence::dpi);
    app_rule by_network{apps.by_address(one->key.server), false, false};
    decide(one, &by_network, evidence::address);
}

void classifier::inspect(flow *one, const ip_packet &ip, direction way, uint64_t time_us)
{
    bool may_be_told = !(ip.protocol == protocol_udp && is_service_port(one->key.server_port)) && one->key.server_port != 53;
    if (!may_be_told)
        return decide(one, nullptr, evidence::none);
    if (ip.payload.size > 0) {
        if (!one->looking && !start_looking(one))
            return;
        inspection &looking = *one->looking;
        looking.payloads++;
        bool waits_for_hello = false;
        if (!looking.hello_done) {
            hello_answer answer{hello_outcome::none, {}};
            if (way == direction::up)
                answer = looking.hello.take(ip);
            else if (looking.hello.is_amid())
                answer = {};
            waits_for_hello = answer.outcome == hello_outcome::needs_more && looking.hello.is_amid();
            take_hello(one, answer);
        }
        if (one->is_decided)
            return;
        if (!waits_for_hello)
            if (const app_rule *rule = dpi.inspect(&looking.dpi, ip, time_us))
                return decide(one, rule, evidence::dpi);
        if (looking.payloads >= dpi_payload_packets)
            return give_up(one);
    }
    bool seen_all = options.packets_shown > 0 && one->packets >= options.packets_shown;
    if (one->closed == flow_closed || seen_all)
        give_up(one);
}
