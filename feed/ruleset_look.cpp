#include "feed/ruleset_look.h"

#include "feed/nflog_rules.h"

#include <algorithm>
#include <endian.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <linux/netlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <string.h>

namespace {

// NFPROTO_INET, whose header does not go with the C library's.
constexpr uint8_t family_inet = 1;
// Each list of attributes here fits.
constexpr int most_attributes = 16;
struct attributes {
    nlattr *found[most_attributes + 1] = {};

    bool read(const nlattr *nest)
    {
        return nest && nla_parse_nested(found, most_attributes, const_cast<nlattr *>(nest), nullptr) == 0;
    }
    uint32_t number(int type) const { return found[type] && nla_len(found[type]) >= 4 ? be32toh(nla_get_u32(found[type])) : 0; }
    std::string text(int type) const
    {
        auto *start = found[type] ? static_cast<const char *>(nla_data(found[type])) : "";
        return std::string(start, found[type] ? strnlen(start, static_cast<size_t>(nla_len(found[type]))) : 0);
    }
};

// What a rule demands of the number of packets that a connection has had.
struct rule_reader {
    uint64_t least = 0, most = UINT64_MAX;
    bool offloads = false, has_verdict = false;
    std::string flow_table;

    uint32_t packets_register = 0; // 0: no register holds the number
    bool in_network_order = false;

    void take(const std::string &name, const attributes &data);
    void compare(const attributes &data);
    void compare_range(const attributes &data);
    bool read_number(const nlattr *data, uint64_t *out) const;
};

bool rule_reader::read_number(const nlattr *data, uint64_t *out) const
{
    attributes value;
    if (!value.read(data) || !value.found[NFTA_DATA_VALUE] || nla_len(value.found[NFTA_DATA_VALUE]) != sizeof(*out))
        return false;
    memcpy(out, nla_data(value.found[NFTA_DATA_VALUE]), sizeof(*out));
    if (in_network_order)
        *out = be64toh(*out);
    return true;
}

void rule_reader::compare(const attributes &data)
{
    uint64_t value = 0;
    if (data.number(NFTA_CMP_SREG) != packets_register || !read_number(data.found[NFTA_CMP_DATA], &value))
        return;
    switch (data.number(NFTA_CMP_OP)) {
    case NFT_CMP_EQ:
        least = most = value;
        break;
    case NFT_CMP_GT:
        least = value == UINT64_MAX ? value : value + 1;
        break;
    case NFT_CMP_GTE:
        least = value;
        break;
    case NFT_CMP_LT:
        most = value == 0 ? 0 : value - 1;
        break;
    case NFT_CMP_LTE:
        most = value;
        break;
    default:
        break;
    }
}

void rule_reader::compare_range(const attributes &data)
{
    uint64_t from = 0, to = 0;
    if (data.number(NFTA_RANGE_SREG) != packets_register || data.number(NFTA_RANGE_OP) != NFT_RANGE_EQ ||
        !read_number(data.found[NFTA_RANGE_FROM_DATA], &from) || !read_number(data.found[NFTA_RANGE_TO_DATA], &to))
        return;
    least = from;
    most = to;
}

void rule_reader::take(const std::string &name, const attributes &data)
{
    if (name == "ct" && data.found[NFTA_CT_DREG]) {
        packets_register = data.number(NFTA_CT_KEY) == NFT_CT_PKTS ? data.number(NFTA_CT_DREG) : 0;
        in_network_order = false;
    } else if (name == "byteorder") {
        in_network_order = true;
    } else if (name == "cmp" && packets_register != 0) {
        compare(data);
    } else if (name == "range" && packets_register != 0) {
        compare_range(data);
    } else if (name != "cmp" && name != "range") {
        packets_register = 0; // it may load another value
        if (name == "flow_offload") {
            offloads = true;
            flow_table = data.text(NFTA_FLOW_TABLE_NAME);
        }
        has_verdict = has_verdict || name == "immediate";
    }
}

rule_reader read_expressions(const nlattr *list)
{
    rule_reader rule;
    if (!list)
        return rule;
    nlattr *at = nullptr;
    int left = 0;
    nla_for_each_nested(at, list, left)
    {
        attributes one, data;
        if (!one.read(at))
            continue;
        data.read(one.found[NFTA_EXPR_DATA]);
        rule.take(one.text(NFTA_EXPR_NAME), data);
    }
    return rule;
}

bool read_message(const nlmsghdr *message, int type, attributes *out)
{
    return message->nlmsg_type == (NFNL_SUBSYS_NFTABLES << 8 | type) &&
           nlmsg_parse(const_cast<nlmsghdr *>(message), sizeof(nfgenmsg), out->found, most_attributes, nullptr) == 0;
}

uint8_t family_of(const nlmsghdr *message)
{
    return static_cast<const nfgenmsg *>(nlmsg_data(message))->nfgen_family;
}

// A chain's or a flow table's name with that of its table.
std::string whole_name(uint8_t family, const std::string &table, const std::string &name)
{
    return std::to_string(family) + " " + table + " " + name;
}

// All that the kernel tells when it is asked for this.
bool ask_for_all(netlink_socket *socket, int what, void (*take)(const nlmsghdr *, ruleset_look *), ruleset_look *out)
{
    nl_msg_ptr request = netfilter_request(NFNL_SUBSYS_NFTABLES << 8 | what, NLM_F_REQUEST | NLM_F_DUMP, 0, 0);
    uint32_t sequence = 0;
    bool asked = socket->tell(request.get(), &sequence);
    while (asked && socket->receive()) {
        const nlmsghdr *message = nullptr;
        while ((message = socket->next_message(message)) != nullptr) {
            if (message->nlmsg_seq != sequence) // an answer that came too late
                continue;
            if (message->nlmsg_type == NLMSG_ERROR || (message->nlmsg_flags & NLM_F_DUMP_INTR))
                return false;
            if (message->nlmsg_type == NLMSG_DONE)
                return true;
            take(message, out);
        }
    }
    return false;
}

} // namespace

void take_flow_table(const nlmsghdr *message, ruleset_look *out)
{
    attributes table;
    if (read_message(message, NFT_MSG_NEWFLOWTABLE, &table) && !(table.number(NFTA_FLOWTABLE_FLAGS) & NFT_FLOWTABLE_COUNTER))
        out->uncounted_tables.push_back(
            whole_name(family_of(message), table.text(NFTA_FLOWTABLE_TABLE), table.text(NFTA_FLOWTABLE_NAME)));
}

void take_rule(const nlmsghdr *message, ruleset_look *out)
{
    attributes rule;
    if (!read_message(message, NFT_MSG_NEWRULE, &rule))
        return;
    uint8_t family = family_of(message);
    std::string table = rule.text(NFTA_RULE_TABLE);
    if (family == family_inet && table == own_table)
        out->has_own_rules = true;
    std::string chain = whole_name(family, table, rule.text(NFTA_RULE_CHAIN));
    rule_reader found = read_expressions(rule.found[NFTA_RULE_EXPRESSIONS]);
    if (found.offloads) {
        const auto &uncounted = out->uncounted_tables;
        std::string flow_table = whole_name(family, table, found.flow_table);
        bool is_guarded = found.least > packets_logged || chain == out->guarded_chain;
        if (!is_guarded || std::find(uncounted.begin(), uncounted.end(), flow_table) != uncounted.end())
            out->offload_unguarded++;
    } else if (found.has_verdict && found.least <= 1 && found.most >= packets_logged && found.most != UINT64_MAX) {
        out->guarded_chain = chain;
    }
}

bool look_at_rules(netlink_socket *socket, ruleset_look *out)
{
    *out = {};
    return ask_for_all(socket, NFT_MSG_GETFLOWTABLE, take_flow_table, out) &&
           ask_for_all(socket, NFT_MSG_GETRULE, take_rule, out);
}
