#include "simulator/world/kernel_messages.h"

#include "common/accounting_message.h"
#include "common/guards.h"
#include "common/mac_text.h"

#include "common/guards.h"

#include <arpa/inet.h>
#include <linux/netfilter/nfnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using message_ptr = std::unique_ptr<nl_msg, released_by<nlmsg_free>>;

void put_tuple(nl_msg *message, int type, const std::string &from, const std::string &to, bool outward, u32 bytes)
{
    constexpr uint16_t device_port = 51000, service_port = 443;
    nlattr *tuple = nla_nest_start(message, type);
    nlattr *part = nla_nest_start(message, cta_tuple_ip);
    nla_put_u32(message, cta_ip_v4_src, inet_addr(from.c_str()));
    nla_put_u32(message, cta_ip_v4_dst, inet_addr(to.c_str()));
    nla_nest_end(message, part);
    part = nla_nest_start(message, cta_tuple_proto);
    nla_put_u8(message, cta_proto_num, IPPROTO_TCP);
    nla_put_u16(message, cta_proto_src_port, htons(outward ? device_port : service_port));
    nla_put_u16(message, cta_proto_dst_port, htons(outward ? service_port : device_port));
    nla_nest_end(message, part);
    part = nla_nest_start(message, cta_tuple_acct);
    nla_put_u32(message, cta_dpi_acct, bytes);
    nla_nest_end(message, part);
    nla_nest_end(message, tuple);
}

igd_nlk_comm header(int action, int gid, int mid)
{
    igd_nlk_comm comm = {};
    comm.action = action;
    comm.gid = gid;
    comm.mid = mid;
    comm.obj_nr = 1;
    return comm;
}

} // namespace

bool mac_from_text(const std::string &text, unsigned char *mac)
{
    unsigned char bytes[6];
    if (!read_mac_text(text.c_str(), bytes))
        return false;
    memcpy(mac, bytes, sizeof(bytes));
    return true;
}

std::vector<unsigned char> accounting_message(const accounting &flow)
{
    message_ptr message(nlmsg_alloc());
    nlmsg_put(message.get(), 0, 0, NFNL_SUBSYS_CTNETLINK << 8 | IPCTNL_MSG_CT_DPI_ACCT, 0, 0);
    nfgenmsg family = {AF_INET, NFNETLINK_V0, 0};
    nlmsg_append(message.get(), &family, sizeof family, NLMSG_ALIGNTO);
    put_tuple(message.get(), cta_tuple_orig, flow.device_ip, flow.remote_ip, true, flow.up);
    put_tuple(message.get(), cta_tuple_reply, flow.remote_ip, flow.device_ip, false, flow.down);
    nla_put_u32(message.get(), cta_app_id, flow.word);
    nla_put_u32(message.get(), cta_rule_id, flow.rule);
    nla_put_u32(message.get(), cta_upper_limit, flow.upper_limit);
    const nlmsghdr *whole = nlmsg_hdr(message.get());
    const unsigned char *bytes = reinterpret_cast<const unsigned char *>(whole);
    return {bytes, bytes + whole->nlmsg_len};
}

nlk_host_msg host_message(int action, const std::string &ip, const std::string &mac)
{
    nlk_host_msg message = {};
    message.comm = header(action, IGD_GID_HOST, 0);
    message.addr.s_addr = inet_addr(ip.c_str());
    mac_from_text(mac, message.mac);
    return message;
}

nlk_sys_msg app_message(int action, u32 word, u32 rule, const std::string &ip, const std::string &mac)
{
    nlk_sys_msg message = {};
    message.comm = header(action, IGD_GID_SYSTEM, IGD_MID_APPIDENT);
    message.msg.appident.app_id = static_cast<int>(word);
    message.msg.appident.ip = inet_addr(ip.c_str());
    message.msg.appident.ruleid = rule;
    mac_from_text(mac, message.msg.appident.mac);
    return message;
}

int open_conntrack()
{
    return socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_NETFILTER);
}

bool multicast(int fd, u32 group, const void *data, size_t size)
{
    sockaddr_nl everyone = {};
    everyone.nl_family = AF_NETLINK;
    everyone.nl_groups = 1u << (group - 1);
    ssize_t sent = sendto(fd, data, size, 0, reinterpret_cast<sockaddr *>(&everyone), sizeof everyone);
    return sent == static_cast<ssize_t>(size);
}

bool send_router_message(const std::string &runtime_dir, const void *message, size_t size)
{
    fd_guard fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    (runtime_dir + "/messages.sock").copy(address.sun_path, sizeof address.sun_path - 1);
    return sendto(fd.get(), message, size, 0, reinterpret_cast<sockaddr *>(&address), sizeof address) ==
           static_cast<ssize_t>(size);
}
