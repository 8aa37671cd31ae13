// A decoded accounting message, and its decoding. Nothing is kept; any thread.
#ifndef COMMON_ACCOUNTING_MESSAGE_H
#define COMMON_ACCOUNTING_MESSAGE_H

#include "igd/igd_types.h"

struct nlmsghdr;

// Netlink message type (low byte) of an accounting message.
constexpr int IPCTNL_MSG_CT_DPI_ACCT = 11;

// The caller zeroes it before decoding. Addresses are dotted text, counts are bytes.
struct app_data {
    u32 appid; // packed application word
    u32 ruleid;
    u32 upperlimit;
    char req_src_ip[16];
    char req_dst_ip[16];
    char req_proto[4];
    u32 req_bytes;
    char rep_src_ip[16];
    char rep_dst_ip[16];
    char rep_proto[4];
    u32 rep_bytes;
};

// Decodes the whole message (nlmsg_len bytes long) into out as far as it got; -1 when an attribute is missing.
int process_app_acct_message(struct nlmsghdr *nlh, app_data *out);

#endif
