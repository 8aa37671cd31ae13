#include "bench/peer.h"

#include "common/accounting_format.h"

#include <arpa/inet.h>
#include <atomic>
#include <netlink/attr.h>
#include <netlink/handlers.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>

namespace {

constexpr int family_header = 4; // nfgenmsg
std::atomic<u32> decoded_messages{0};

struct peer_direction {
    char from[INET_ADDRSTRLEN], to[INET_ADDRSTRLEN];
    u32 protocol, bytes;
};

struct peer_message {
    u32 word, rule, upper_limit;
    peer_direction request, reply;
};

bool print_address(nlattr *attribute, char (&text)[INET_ADDRSTRLEN])
{
    return attribute && inet_ntop(AF_INET, nla_data(attribute), text, sizeof(text));
}

bool read_direction(nlattr *nest, peer_direction &out)
{
    nlattr *tuple[cta_tuple_acct + 1], *addresses[cta_ip_v4_dst + 1], *protocol[cta_proto_dst_port + 1],
        *account[cta_dpi_acct + 1];
    if (!nest || nla_parse_nested(tuple, cta_tuple_acct, nest, nullptr) < 0 || !tuple[cta_tuple_ip] ||
        !tuple[cta_tuple_proto] || !tuple[cta_tuple_acct] ||
        nla_parse_nested(addresses, cta_ip_v4_dst, tuple[cta_tuple_ip], nullptr) < 0 ||
        nla_parse_nested(protocol, cta_proto_dst_port, tuple[cta_tuple_proto], nullptr) < 0 ||
        nla_parse_nested(account, cta_dpi_acct, tuple[cta_tuple_acct], nullptr) < 0 || !protocol[cta_proto_num] ||
        !account[cta_dpi_acct])
        return false;
    out.protocol = nla_get_u8(protocol[cta_proto_num]);
    out.bytes = nla_get_u32(account[cta_dpi_acct]);
    return print_address(addresses[cta_ip_v4_src], out.from) && print_address(addresses[cta_ip_v4_dst], out.to);
}

int on_message(nl_msg *message, void *)
{
    nlattr *parts[cta_upper_limit + 1];
    if (nlmsg_parse(nlmsg_hdr(message), family_header, parts, cta_upper_limit, nullptr) < 0 || !parts[cta_app_id] ||
        !parts[cta_rule_id] || !parts[cta_upper_limit])
        return NL_SKIP;
    peer_message decoded = {};
    decoded.word = nla_get_u32(parts[cta_app_id]);
    decoded.rule = nla_get_u32(parts[cta_rule_id]);
    decoded.upper_limit = nla_get_u32(parts[cta_upper_limit]);
    if (read_direction(parts[cta_tuple_orig], decoded.request) && read_direction(parts[cta_tuple_reply], decoded.reply))
        decoded_messages.fetch_add(1, std::memory_order_relaxed);
    return NL_OK;
}

} // namespace

void prepare_the_usual_way(nl_sock *socket)
{
    nl_socket_disable_seq_check(socket);
    nl_socket_modify_cb(socket, NL_CB_VALID, NL_CB_CUSTOM, on_message, nullptr);
}

void receive_the_usual_way(nl_sock *socket)
{
    nl_recvmsgs_default(socket);
}

u32 messages_of_peer()
{
    return decoded_messages.load(std::memory_order_relaxed);
}
