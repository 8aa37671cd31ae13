#include "common/accounting_message.h"

#include "common/accounting_format.h"
#include "common/address_text.h"

#include <linux/netlink.h>
#include <string.h>

namespace {

constexpr int family_header = 4; // nfgenmsg

struct attribute {
    const unsigned char *payload; // null: not found
    u32 size;                     // of the payload
};

bool is_found(const attribute &part)
{
    return part.payload != nullptr;
}

// Calls visit(type, attribute) for each well-formed attribute of the bytes. Compiled into each of its callers: libnl's six
// functions for the same, or one of ours, cost more in calls than in work.
template <typename visitor>
__attribute__((always_inline)) inline void walk_attributes(const unsigned char *at, u32 left, visitor visit)
{
    constexpr u32 header_size = NLA_HDRLEN;
    while (left >= header_size) {
        nlattr header;
        memcpy(&header, at, header_size);
        at += header_size;
        left -= header_size;
        u32 size = header.nla_len - header_size; // of a length below the header's a huge one
        if (size > left)
            return;
        visit(static_cast<u32>(header.nla_type & NLA_TYPE_MASK), attribute{at, size});
        u32 padded = NLA_ALIGN(size);
        if (padded >= left) // the last one need not be padded
            return;
        at += padded;
        left -= padded;
    }
}

template <typename visitor> __attribute__((always_inline)) inline void walk_nest(attribute nest, visitor visit)
{
    walk_attributes(nest.payload, nest.size, visit);
}

bool read_u32(attribute from, u32 *value)
{
    if (!is_found(from) || from.size < sizeof(*value))
        return false;
    memcpy(value, from.payload, sizeof(*value));
    return true;
}

void read_address(attribute from, char *text)
{
    if (from.size >= 4)
        write_address_text(from.payload, text);
}

// One direction of the flow, as it stands in app_data.
struct flow_direction {
    char *src_ip;
    char *dst_ip;
    char *proto;
    u32 *bytes;
};

void read_proto(attribute nest, const flow_direction &to)
{
    // The byte tested is the nest's first, part of its first attribute's length, not the protocol number: the text has always
    // been made so, it is "udp" for every usual message, and nothing decides on it.
    const char *text = nest.size >= 1 && nest.payload[0] == 6 ? "tcp" : "udp";
    // A number without a value is one all the same.
    walk_nest(nest, [&](u32 type, attribute) {
        if (type == cta_proto_num)
            memcpy(to.proto, text, 4);
    });
}

void read_account(attribute nest, const flow_direction &to)
{
    walk_nest(nest, [&](u32 type, attribute child) {
        if (type == cta_dpi_acct)
            read_u32(child, to.bytes);
    });
}

void read_addresses(attribute nest, const flow_direction &to)
{
    walk_nest(nest, [&](u32 type, attribute child) {
        if (type == cta_ip_v4_src)
            read_address(child, to.src_ip);
        else if (type == cta_ip_v4_dst)
            read_address(child, to.dst_ip);
    });
}

void read_tuple(attribute tuple, const flow_direction &to)
{
    walk_nest(tuple, [&](u32 type, attribute nest) {
        if (type == cta_tuple_ip)
            read_addresses(nest, to);
        else if (type == cta_tuple_proto)
            read_proto(nest, to);
        else if (type == cta_tuple_acct)
            read_account(nest, to);
    });
}

// The first attribute of each type that is read.
struct message_parts {
    attribute app_id, rule_id, upper_limit, original, reply;
};

void keep_first(attribute &part, attribute found)
{
    if (!is_found(part))
        part = found;
}

message_parts find_parts(const nlmsghdr *message)
{
    constexpr u32 before_attributes = NLMSG_HDRLEN + family_header;
    message_parts parts = {};
    if (message->nlmsg_len < before_attributes)
        return parts;
    const auto *begin = reinterpret_cast<const unsigned char *>(message);
    walk_attributes(begin + before_attributes, message->nlmsg_len - before_attributes, [&](u32 type, attribute found) {
        if (type == cta_tuple_orig)
            keep_first(parts.original, found);
        else if (type == cta_tuple_reply)
            keep_first(parts.reply, found);
        else if (type == cta_app_id)
            keep_first(parts.app_id, found);
        else if (type == cta_rule_id)
            keep_first(parts.rule_id, found);
        else if (type == cta_upper_limit)
            keep_first(parts.upper_limit, found);
    });
    return parts;
}

} // namespace

int process_app_acct_message(struct nlmsghdr *nlh, app_data *out)
{
    if (!out)
        return -1;
    message_parts parts = find_parts(nlh);
    if (!read_u32(parts.app_id, &out->appid) || !read_u32(parts.rule_id, &out->ruleid) ||
        !read_u32(parts.upper_limit, &out->upperlimit) || !is_found(parts.original))
        return -1;
    read_tuple(parts.original, {out->req_src_ip, out->req_dst_ip, out->req_proto, &out->req_bytes});
    if (!is_found(parts.reply))
        return -1;
    read_tuple(parts.reply, {out->rep_src_ip, out->rep_dst_ip, out->rep_proto, &out->rep_bytes});
    return 0;
}
