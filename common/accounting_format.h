// The form of an accounting message, for its reader and for those who write one: attribute types and the packed words.
//
// A netlink message of netfilter's type, an nfgenmsg, then attributes. Numbers are in host order, addresses in network order.
#ifndef COMMON_ACCOUNTING_FORMAT_H
#define COMMON_ACCOUNTING_FORMAT_H

#include "igd/igd_types.h"

// Attributes of the message: two tuples, three u32.
enum : u32 { cta_tuple_orig = 1, cta_tuple_reply = 2, cta_app_id = 27, cta_rule_id = 28, cta_upper_limit = 29 };
// Nests of a tuple.
enum : u32 { cta_tuple_ip = 1, cta_tuple_proto = 2, cta_tuple_acct = 3 };
// In the nests: u32 addresses; a u8 and two u16; a u32 count of bytes.
enum : u32 { cta_ip_v4_src = 1, cta_ip_v4_dst = 2 };
enum : u32 { cta_proto_num = 1, cta_proto_src_port = 2, cta_proto_dst_port = 3 };
enum : u32 { cta_dpi_acct = 26 };

// Fields of the application word.
constexpr u32 word_app_id(u32 word)
{
    return (word & 0x7FFF8000u) >> 15;
}
constexpr u32 word_behavior(u32 word)
{
    return (word & 0x7F80u) >> 7;
}
constexpr u32 word_platform(u32 word)
{
    return (word & 0x70u) >> 4;
}
constexpr u32 word_vendor(u32 word)
{
    return word & 0xFu;
}
// Only words of this vendor count.
constexpr u32 our_vendor = 1;

constexpr u32 application_word(u32 app_id, u32 behavior = 0)
{
    return app_id << 15 | behavior << 7 | our_vendor;
}

// Bit of a rule id: the hit may open a session, others only count in an open one.
constexpr u32 start_mark = 0x1000000;

#endif
