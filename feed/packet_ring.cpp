#include "feed/packet_ring.h"

#include <algorithm>
#include <arpa/inet.h>
#include <errno.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <pcap/dlt.h>
#include <poll.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr unsigned int block_bytes = 256 * 1024, block_count = 16; // 4 MiB
constexpr unsigned int frame_bytes = 2048;                         // only for the kernel's checks; frames lie close together
constexpr unsigned int block_timeout_ms = 100;
// A hello of two segments that the network card joined is whole.
constexpr unsigned int bytes_copied = 4096;
// Of which older headers do not know the names.
constexpr int ignore_outgoing = 23;             // PACKET_IGNORE_OUTGOING
constexpr unsigned short raw_ip_hardware = 519; // ARPHRD_RAWIP

constexpr uint32_t protocol_of_packet = static_cast<uint32_t>(SKF_AD_OFF) + SKF_AD_PROTOCOL;
constexpr uint32_t type_behind_tag = 16, type_behind_two_tags = 20;

constexpr sock_filter load_half(uint32_t at)
{
    return {BPF_LD | BPF_H | BPF_ABS, 0, 0, at};
}
// `yes` and `no`: so many instructions are skipped.
constexpr sock_filter is(uint32_t value, uint8_t yes, uint8_t no)
{
    return {BPF_JMP | BPF_JEQ | BPF_K, yes, no, value};
}
constexpr sock_filter take(uint32_t bytes)
{
    return {BPF_RET | BPF_K, 0, 0, bytes};
}

// IP only, with up to two VLAN tags in the frame. The kernel takes the outer one off frames that come in.
sock_filter ip_only[] = {
    {BPF_LD | BPF_W | BPF_ABS, 0, 0, protocol_of_packet},
    is(ETH_P_IP, 12, 0),
    is(ETH_P_IPV6, 11, 0),
    is(ETH_P_8021Q, 1, 0),
    is(ETH_P_8021AD, 0, 8),
    load_half(type_behind_tag),
    is(ETH_P_IP, 7, 0),
    is(ETH_P_IPV6, 6, 0),
    is(ETH_P_8021Q, 1, 0),
    is(ETH_P_8021AD, 0, 3),
    load_half(type_behind_two_tags),
    is(ETH_P_IP, 2, 0),
    is(ETH_P_IPV6, 1, 0),
    take(0),
    take(bytes_copied),
};

template <typename value> bool set(int fd, int level, int option, const value &to)
{
    return setsockopt(fd, level, option, &to, sizeof(to)) == 0;
}

// Of frames on such an interface; -1 where nobody knows how they begin.
int link_type_of(unsigned short hardware)
{
    switch (hardware) {
    case ARPHRD_ETHER:
    case ARPHRD_LOOPBACK:
        return DLT_EN10MB;
    case ARPHRD_NONE:
    case ARPHRD_PPP:
    case raw_ip_hardware:
        return DLT_RAW;
    default:
        return -1;
    }
}

} // namespace

packet_ring::~packet_ring()
{
    if (memory)
        munmap(memory, static_cast<size_t>(block_bytes) * block_count);
    if (fd >= 0)
        close(fd);
}

bool packet_ring::open()
{
    // Without a protocol it receives nothing yet.
    fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    sock_fprog filter{sizeof(ip_only) / sizeof(ip_only[0]), ip_only};
    tpacket_req3 ring{};
    ring.tp_block_size = block_bytes;
    ring.tp_block_nr = block_count;
    ring.tp_frame_size = frame_bytes;
    ring.tp_frame_nr = block_bytes / frame_bytes * block_count;
    ring.tp_retire_blk_tov = block_timeout_ms;
    if (!set(fd, SOL_SOCKET, SO_ATTACH_FILTER, filter) || !set(fd, SOL_PACKET, PACKET_VERSION, int{TPACKET_V3}) ||
        !set(fd, SOL_PACKET, PACKET_RX_RING, ring))
        return false;
    void *mapped = mmap(nullptr, static_cast<size_t>(block_bytes) * block_count, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    memory = mapped == MAP_FAILED ? nullptr : static_cast<uint8_t *>(mapped);
    return memory != nullptr;
}

bool packet_ring::attach(const std::string &interface)
{
    ifreq about{};
    errno = ENODEV;
    if (interface.size() >= sizeof(about.ifr_name))
        return false;
    memcpy(about.ifr_name, interface.data(), interface.size());
    if (ioctl(fd, SIOCGIFHWADDR, &about) != 0)
        return false;
    unsigned short hardware = about.ifr_hwaddr.sa_family;
    type = link_type_of(hardware);
    errno = EPROTONOSUPPORT;
    if (type < 0 || ioctl(fd, SIOCGIFINDEX, &about) != 0)
        return false;
    // What is sent to the loopback comes back on it.
    set(fd, SOL_PACKET, ignore_outgoing, int{hardware == ARPHRD_LOOPBACK});
    sockaddr_ll where{};
    where.sll_family = AF_PACKET;
    where.sll_protocol = htons(ETH_P_ALL);
    where.sll_ifindex = about.ifr_ifindex;
    // Where it fails the interface shows what it would see anyway.
    packet_mreq all{about.ifr_ifindex, PACKET_MR_PROMISC, 0, {}};
    set(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, all);
    return bind(fd, reinterpret_cast<sockaddr *>(&where), sizeof(where)) == 0;
}

uint8_t *packet_ring::block() const
{
    return memory + current * block_bytes;
}

byte_view packet_ring::next_block() const
{
    auto *status = &reinterpret_cast<tpacket_block_desc *>(block())->hdr.bh1.block_status;
    return __atomic_load_n(status, __ATOMIC_ACQUIRE) & TP_STATUS_USER ? byte_view{block(), block_bytes} : byte_view{};
}

void packet_ring::give_back()
{
    auto *status = &reinterpret_cast<tpacket_block_desc *>(block())->hdr.bh1.block_status;
    __atomic_store_n(status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
    current = (current + 1) % block_count;
}

uint32_t packet_ring::take_lost()
{
    tpacket_stats_v3 seen{};
    socklen_t size = sizeof(seen);
    return getsockopt(fd, SOL_PACKET, PACKET_STATISTICS, &seen, &size) == 0 ? seen.tp_drops : 0;
}

void packet_ring::wait(int milliseconds)
{
    pollfd ready{fd, POLLIN, 0};
    if (poll(&ready, 1, milliseconds) != 1 || !(ready.revents & POLLERR))
        return;
    int gone = 0;
    socklen_t size = sizeof(gone);
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &gone, &size); // reading it clears it
}
