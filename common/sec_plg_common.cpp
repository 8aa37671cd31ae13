#include "common/sec_plg_common.h"

#include "common/log.h"
#include "igd/igd_lib.h"

#include <arpa/inet.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <string.h>

nos_lan_cfg g_lan_cfg;

namespace {

// Attributes of an accounting message. Top level:
constexpr int CTA_TUPLE_ORIG = 1;
constexpr int CTA_TUPLE_REPLY = 2;
constexpr int CTA_APP_ID = 27;
constexpr int CTA_RULE_ID = 28;
constexpr int CTA_UPPERLIMIT = 29;
constexpr int last_top_level = CTA_UPPERLIMIT;
// In a tuple:
constexpr int CTA_TUPLE_IP = 1;
constexpr int CTA_TUPLE_PROTO = 2;
constexpr int CTA_TUPLE_ACCT = 3;
// In the tuple's nests:
constexpr int CTA_IP_V4_SRC = 1;
constexpr int CTA_IP_V4_DST = 2;
constexpr int CTA_PROTO_NUM = 1;
constexpr int CTA_DPI_ACCT = 26;

constexpr int family_header = 4; // nfgenmsg

// One direction of the flow, as it stands in app_data.
struct flow_direction {
    char *src_ip;
    char *dst_ip;
    char *proto;
    u32 *bytes;
};

// Calls visit(attribute) for each well-formed attribute of a stream. An unpadded last attribute leaves a negative remainder,
// which some libnl releases take for a huge one, hence the test of our own.
template <typename visitor> void walk_attributes(nlattr *attribute, int remaining, visitor visit)
{
    while (remaining > 0 && nla_ok(attribute, remaining)) {
        visit(attribute);
        attribute = nla_next(attribute, &remaining);
    }
}

template <typename visitor> void walk_nest(nlattr *nest, visitor visit)
{
    walk_attributes(static_cast<nlattr *>(nla_data(nest)), nla_len(nest), visit);
}

bool holds(const nlattr *attribute, size_t size)
{
    return attribute && nla_len(attribute) >= static_cast<int>(size);
}

bool read_u32(const nlattr *attribute, u32 *value)
{
    if (!holds(attribute, sizeof(u32)))
        return false;
    *value = nla_get_u32(attribute);
    return true;
}

char *write_byte(char *out, unsigned value)
{
    if (value >= 100)
        *out++ = static_cast<char>('0' + value / 100);
    if (value >= 10)
        *out++ = static_cast<char>('0' + value / 10 % 10);
    *out++ = static_cast<char>('0' + value % 10);
    return out;
}

// Four bytes as they stand in the message. By hand: four snprintf calls cost a quarter of receiving the message.
void write_address(const nlattr *attribute, char *out)
{
    if (!holds(attribute, 4))
        return;
    const auto *bytes = static_cast<const unsigned char *>(nla_data(attribute));
    for (int i = 0; i < 4; i++) {
        if (i > 0)
            *out++ = '.';
        out = write_byte(out, bytes[i]);
    }
    *out = '\0';
}

void read_proto(nlattr *nest, const flow_direction &to)
{
    // On purpose the byte tested is the nest's first, part of its first attribute's length, not the protocol number: the text
    // is "udp" for every usual message, and nothing decides on it.
    const char *text = holds(nest, 1) && *static_cast<const unsigned char *>(nla_data(nest)) == 6 ? "tcp" : "udp";
    walk_nest(nest, [&](nlattr *child) {
        if (nla_type(child) == CTA_PROTO_NUM && holds(child, 1))
            memcpy(to.proto, text, 4);
    });
}

void read_account(nlattr *nest, const flow_direction &to)
{
    walk_nest(nest, [&](nlattr *child) {
        if (nla_type(child) == CTA_DPI_ACCT)
            read_u32(child, to.bytes);
    });
}

void read_addresses(nlattr *nest, const flow_direction &to)
{
    walk_nest(nest, [&](nlattr *child) {
        if (nla_type(child) == CTA_IP_V4_SRC)
            write_address(child, to.src_ip);
        else if (nla_type(child) == CTA_IP_V4_DST)
            write_address(child, to.dst_ip);
    });
}

void read_tuple(nlattr *tuple, const flow_direction &to)
{
    walk_nest(tuple, [&](nlattr *nest) {
        switch (nla_type(nest)) {
        case CTA_TUPLE_IP:
            read_addresses(nest, to);
            break;
        case CTA_TUPLE_PROTO:
            read_proto(nest, to);
            break;
        case CTA_TUPLE_ACCT:
            read_account(nest, to);
            break;
        default:
            break;
        }
    });
}

} // namespace

int plugin_common_init(void)
{
    memset(&g_lan_cfg, 0, sizeof(g_lan_cfg));
    if (get_lan_config(&g_lan_cfg) != 0)
        return -1;
    url_check_log(0, "[sec_plg_common] lan ip: %s\n", inet_ntoa(g_lan_cfg.ip));
    return 0;
}

int process_app_acct_message(struct nlmsghdr *nlh, app_data *out)
{
    if (!out)
        return -1;
    nlattr *found[last_top_level + 1] = {};
    walk_attributes(nlmsg_attrdata(nlh, family_header), nlmsg_attrlen(nlh, family_header), [&](nlattr *attribute) {
        int type = nla_type(attribute);
        if (type <= last_top_level && !found[type])
            found[type] = attribute;
    });
    if (!read_u32(found[CTA_APP_ID], &out->appid) || !read_u32(found[CTA_RULE_ID], &out->ruleid) ||
        !read_u32(found[CTA_UPPERLIMIT], &out->upperlimit) || !found[CTA_TUPLE_ORIG])
        return -1;
    read_tuple(found[CTA_TUPLE_ORIG], {out->req_src_ip, out->req_dst_ip, out->req_proto, &out->req_bytes});
    if (!found[CTA_TUPLE_REPLY])
        return -1;
    read_tuple(found[CTA_TUPLE_REPLY], {out->rep_src_ip, out->rep_dst_ip, out->rep_proto, &out->rep_bytes});
    return 0;
}

char *get_mac_str_by_ip(u32 ip, char *buf, int len)
{
    if (!buf || len < mac_text_size)
        return nullptr;
    unsigned char mac[6] = {};
    if (get_mac_by_ip(ip, mac) != 0)
        return nullptr;
    return get_mac_str_by_mac(mac, buf, len);
}

char *get_mac_str_by_mac(const unsigned char *mac, char *buf, int len)
{
    if (!mac || !buf || len < mac_text_size)
        return nullptr;
    char text[mac_text_size];
    write_mac_text(mac, text);
    memcpy(buf, text, sizeof(text));
    return buf;
}
