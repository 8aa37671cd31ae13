// Netlink for the live sources: a socket, requests that the kernel confirms, and whole datagrams back.
#ifndef FEED_NETLINK_SOCKET_H
#define FEED_NETLINK_SOCKET_H

#include "feed/message_sender.h"

#include <vector>

struct nlmsghdr;

// A request to netfilter of this type (subsystem and message), for this family, with res_id (host order); null when memory
// lacks.
nl_msg_ptr netfilter_request(int type, int flags, uint8_t family, uint16_t res_id);

class netlink_socket {
public:
    // `protocol`: NETLINK_NETFILTER or another. Reads wait for `receive_seconds` at most; 0: they never wait. False, with
    // errno.
    bool open(int protocol, int receive_seconds);
    // Sends it and waits for the kernel's word on it: 0, or a negative error of libnl.
    int ask(nl_msg_ptr request);
    // Sends it and waits for nothing. False when it was not sent; `sequence` is what the answers will carry.
    bool tell(nl_msg *request, uint32_t *sequence);
    // The next datagram of the kernel. False when none is there.
    bool receive();
    // The messages in it, one after the other; null at its end. `at` is null at first.
    const nlmsghdr *next_message(const nlmsghdr *at) const;
    int descriptor() const;
    // For what comes in bursts.
    void enlarge_buffer(int bytes);

private:
    nl_sock_ptr socket;
    std::vector<char> buffer;
    int size = 0;
};

// The message after `at`, null where none follows whole in `size` bytes at `data`.
const nlmsghdr *next_netlink_message(const char *data, int size, const nlmsghdr *at);

#endif
