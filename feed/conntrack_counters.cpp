#include "feed/conntrack_counters.h"

#include "feed/conntrack_entry.h"

#include <linux/netfilter/nfnetlink.h>
#include <linux/netfilter/nfnetlink_conntrack.h>
#include <linux/netlink.h>

namespace {

constexpr int longest_answer_seconds = 5;

// The client's or the server's end as the device.
flow_key key_of(const conntrack_entry &entry, bool began_outside)
{
    const conntrack_end &device = began_outside ? entry.server : entry.client;
    const conntrack_end &other = began_outside ? entry.client : entry.server;
    return {device.address, other.address, device.port, other.port, entry.protocol};
}

// Which end is the device; false where neither or both may be.
bool find_device(const conntrack_entry &entry, const source_run &run, bool *began_outside)
{
    bool client_in_lan = contains(run.options.lan, entry.client.address);
    bool server_in_lan = contains(run.options.lan, entry.server.address);
    *began_outside = server_in_lan;
    if (client_in_lan != server_in_lan)
        return true;
    if (client_in_lan || entry.client.address.family != 6)
        return false;
    // Of two outside addresses the classifier guessed, when it saw a packet.
    *began_outside = run.classify.knows(key_of(entry, true));
    return *began_outside || run.classify.knows(key_of(entry, false));
}

void count(const conntrack_entry &entry, const source_run &run, bool are_old, uint64_t now_us)
{
    bool began_outside = false;
    if (!find_device(entry, run, &began_outside))
        return;
    flow_key key = key_of(entry, began_outside);
    if (!are_old && !run.classify.knows(key))
        return;
    uint64_t up_bytes = began_outside ? entry.server_bytes : entry.client_bytes;
    uint64_t down_bytes = began_outside ? entry.client_bytes : entry.server_bytes;
    run.classify.count_flow(key, {up_bytes, down_bytes, entry.packets, began_outside}, now_us);
}

} // namespace

bool conntrack_counters::open()
{
    return socket.open(NETLINK_NETFILTER, longest_answer_seconds);
}

bool conntrack_counters::read(const source_run &run, bool are_old, uint64_t now_us)
{
    nl_msg_ptr request = netfilter_request(NFNL_SUBSYS_CTNETLINK << 8 | IPCTNL_MSG_CT_GET, NLM_F_REQUEST | NLM_F_DUMP, 0, 0);
    uint32_t sequence = 0;
    bool asked = socket.tell(request.get(), &sequence);
    while (asked && socket.receive()) {
        const nlmsghdr *message = nullptr;
        while ((message = socket.next_message(message)) != nullptr) {
            if (message->nlmsg_seq != sequence) // an answer that came too late
                continue;
            if (message->nlmsg_type == NLMSG_DONE)
                return true;
            if (message->nlmsg_type == NLMSG_ERROR) {
                run.counts[feed_dumps_failed]++;
                return false;
            }
            conntrack_entry entry;
            if (read_conntrack_entry(message, &entry))
                count(entry, run, are_old, now_us);
        }
    }
    run.counts[feed_dumps_failed]++;
    return false;
}
