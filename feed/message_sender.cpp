#include "feed/message_sender.h"

#include "common/accounting_format.h"
#include "common/accounting_message.h"

#include <algorithm>
#include <arpa/inet.h>
#include <errno.h>
#include <linux/netfilter/nfnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <string.h>

namespace {

constexpr unsigned int evidence_shift = 16;
constexpr uint32_t most_app_id = 0xFFFF;
static_assert(word_app_id(application_word(most_app_id)) == most_app_id, "an id fits into the word");
static_assert((start_mark & (most_app_id | 0xFFu << evidence_shift)) == 0, "the mark's bit is its own");

bool is_of_an_app(uint32_t id)
{
    return id != 0 && id != 8 && (id < 300 || id > 303) && id <= most_app_id;
}

struct tuple_end {
    const ip_address &address;
    uint16_t port;
};

// In network order, as it lies in the address.
uint32_t ipv4_of(const ip_address &address)
{
    uint32_t raw = 0;
    if (address.family == 4)
        memcpy(&raw, address.bytes.data(), sizeof(raw));
    return raw;
}

bool put_tuple(nl_msg *message, int type, const tuple_end &from, const tuple_end &to, uint8_t protocol, uint64_t bytes)
{
    nlattr *tuple = nla_nest_start(message, type);
    nlattr *part = tuple ? nla_nest_start(message, cta_tuple_ip) : nullptr;
    if (!part || nla_put_u32(message, cta_ip_v4_src, ipv4_of(from.address)) < 0 ||
        nla_put_u32(message, cta_ip_v4_dst, ipv4_of(to.address)) < 0)
        return false;
    nla_nest_end(message, part);
    part = nla_nest_start(message, cta_tuple_proto);
    if (!part || nla_put_u8(message, cta_proto_num, protocol) < 0 ||
        nla_put_u16(message, cta_proto_src_port, htons(from.port)) < 0 ||
        nla_put_u16(message, cta_proto_dst_port, htons(to.port)) < 0)
        return false;
    nla_nest_end(message, part);
    part = nla_nest_start(message, cta_tuple_acct);
    if (!part || nla_put_u32(message, cta_dpi_acct, static_cast<uint32_t>(std::min<uint64_t>(bytes, UINT32_MAX))) < 0)
        return false;
    nla_nest_end(message, part);
    nla_nest_end(message, tuple);
    return true;
}

} // namespace

void nl_msg_release::operator()(nl_msg *message) const
{
    nlmsg_free(message);
}

void nl_sock_release::operator()(nl_sock *socket) const
{
    nl_socket_free(socket);
}

uint32_t rule_id_of(const hit &found)
{
    return found.app | static_cast<uint32_t>(found.by) << evidence_shift | (found.is_marked ? start_mark : 0);
}

nl_msg_ptr accounting_message(const hit &found)
{
    if (found.device.family != 4 || !is_of_an_app(found.app))
        return nullptr;
    nl_msg_ptr message(nlmsg_alloc());
    // Without NLM_F_REQUEST, so that the kernel, to which every multicast goes too, leaves it alone.
    if (!message || !nlmsg_put(message.get(), 0, 0, NFNL_SUBSYS_CTNETLINK << 8 | IPCTNL_MSG_CT_DPI_ACCT, 0, 0))
        return nullptr;
    nfgenmsg family{AF_INET, NFNETLINK_V0, 0};
    tuple_end device{found.device, found.flow.device_port}, server{found.flow.server, found.flow.server_port};
    bool whole = nlmsg_append(message.get(), &family, sizeof(family), NLMSG_ALIGNTO) == 0 &&
                 put_tuple(message.get(), cta_tuple_orig, device, server, found.flow.protocol, found.up_bytes) &&
                 put_tuple(message.get(), cta_tuple_reply, server, device, found.flow.protocol, found.down_bytes) &&
                 nla_put_u32(message.get(), cta_app_id, application_word(found.app, found.is_call ? 1 : 0)) == 0 &&
                 nla_put_u32(message.get(), cta_rule_id, rule_id_of(found)) == 0 &&
                 nla_put_u32(message.get(), cta_upper_limit, 0) == 0;
    if (!whole)
        message.reset();
    return message;
}

bool message_sender::open()
{
    socket.reset(nl_socket_alloc());
    if (!socket || nl_connect(socket.get(), NETLINK_NETFILTER) < 0) {
        socket.reset();
        errno = errno ? errno : ENOMEM;
        return false;
    }
    nl_socket_set_peer_groups(socket.get(), 1u << (message_group - 1));
    return true;
}

send_outcome message_sender::send(const hit &found)
{
    nl_msg_ptr message = accounting_message(found);
    if (!message)
        return send_outcome::not_told;
    return socket && nl_send(socket.get(), message.get()) >= 0 ? send_outcome::sent : send_outcome::failed;
}
