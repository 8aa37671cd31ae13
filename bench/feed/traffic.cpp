#include "bench/feed/traffic.h"

#include <algorithm>
#include <arpa/inet.h>
#include <memory>
#include <net/ethernet.h>
#include <netinet/ether.h>
#include <netinet/ip.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <string.h>

namespace {

constexpr uint16_t first_port = 1024, https = 443;
constexpr uint32_t client_ports = 60000; // then the server has another port
constexpr unsigned int handshake = 4;    // packets of the client's hello and before
constexpr size_t data_bytes = 1400;

struct __attribute__((packed)) headers {
    ether_header link;
    iphdr ip;
    tcphdr tcp;
};
static_assert(sizeof(headers) == 14 + 20 + 20, "as on the wire");

uint32_t sum_of(const uint8_t *bytes, size_t size, uint32_t sum)
{
    for (size_t i = 0; i < size; i++)
        sum += i % 2 ? bytes[i] : static_cast<uint32_t>(bytes[i]) << 8;
    return sum;
}

uint16_t checksum(uint32_t sum)
{
    while (sum >> 16)
        sum = (sum & 0xffff) + (sum >> 16);
    return htons(static_cast<uint16_t>(~sum));
}

// One connection as far as it was told.
struct teller {
    uint16_t port, server_port;
    uint32_t next[2] = {1000, 900000}; // of the client, of the server

    frame tell(bool from_lan, uint8_t flags, const uint8_t *data, size_t size)
    {
        frame told{from_lan, std::vector<uint8_t>(sizeof(headers) + size)};
        headers all{};
        memcpy(all.link.ether_shost, ether_aton(from_lan ? device_mac : server_mac), ETH_ALEN);
        memcpy(all.link.ether_dhost, ether_aton(router_mac), ETH_ALEN);
        all.link.ether_type = htons(ETHERTYPE_IP);
        all.ip.version = 4;
        all.ip.ihl = 5;
        all.ip.ttl = 64;
        all.ip.protocol = IPPROTO_TCP;
        all.ip.tot_len = htons(static_cast<uint16_t>(told.bytes.size() - sizeof(ether_header)));
        all.ip.saddr = inet_addr(from_lan ? device_address : server_address);
        all.ip.daddr = inet_addr(from_lan ? server_address : device_address);
        all.ip.check = checksum(sum_of(reinterpret_cast<const uint8_t *>(&all.ip), sizeof(all.ip), 0));
        all.tcp.source = htons(from_lan ? port : server_port);
        all.tcp.dest = htons(from_lan ? server_port : port);
        all.tcp.seq = htonl(next[!from_lan]);
        all.tcp.ack_seq = flags == TH_SYN ? 0 : htonl(next[from_lan]);
        all.tcp.doff = 5;
        all.tcp.th_flags = flags;
        all.tcp.window = htons(65000);
        uint32_t pseudo = sum_of(reinterpret_cast<const uint8_t *>(&all.ip.saddr), 8, IPPROTO_TCP);
        pseudo += static_cast<uint32_t>(sizeof(all.tcp) + size);
        uint32_t sum = sum_of(reinterpret_cast<const uint8_t *>(&all.tcp), sizeof(all.tcp), pseudo);
        all.tcp.check = checksum(sum_of(data, size, sum));
        memcpy(told.bytes.data(), &all, sizeof(all));
        if (size > 0)
            memcpy(told.bytes.data() + sizeof(all), data, size);
        next[!from_lan] += static_cast<uint32_t>(size) + ((flags & (TH_SYN | TH_FIN)) != 0);
        return told;
    }
};

frame packet_of(teller *one, unsigned int index, unsigned int length, const std::vector<uint8_t> &hello)
{
    // An application data record, again and again, is what TLS looks like.
    static const std::vector<uint8_t> data = [] {
        std::vector<uint8_t> record(data_bytes, 0xa7);
        const uint8_t header[] = {0x17, 3, 3, (data_bytes - 5) >> 8, (data_bytes - 5) & 0xff};
        std::copy(std::begin(header), std::end(header), record.begin());
        return record;
    }();
    if (index < handshake - 1)
        return one->tell(index != 1,
                         static_cast<uint8_t>(index == 0   ? TH_SYN
                                              : index == 1 ? TH_SYN | TH_ACK
                                                           : TH_ACK),
                         nullptr, 0);
    if (index == handshake - 1)
        return one->tell(true, TH_PUSH | TH_ACK, hello.data(), hello.size());
    if (index + 2 >= length)
        return one->tell(index + 2 == length, TH_FIN | TH_ACK, nullptr, 0);
    bool from_lan = index % 3 == 1;
    return one->tell(from_lan, TH_ACK, data.data(), from_lan ? 0 : data.size());
}

} // namespace

std::vector<uint8_t> client_hello(const std::string &host)
{
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    std::unique_ptr<SSL, decltype(&SSL_free)> session(SSL_new(context.get()), SSL_free);
    BIO *out = BIO_new(BIO_s_mem());
    SSL_set_bio(session.get(), BIO_new(BIO_s_mem()), out);
    SSL_set_tlsext_host_name(session.get(), host.c_str());
    SSL_connect(session.get()); // waits for an answer that never comes
    std::vector<uint8_t> hello(BIO_ctrl_pending(out));
    BIO_read(out, hello.data(), static_cast<int>(hello.size()));
    return hello;
}

std::vector<frame> connections(uint32_t number, unsigned int count, unsigned int length, unsigned int first, unsigned int last,
                               const std::vector<uint8_t> &hello)
{
    std::vector<teller> all(count);
    std::vector<frame> told;
    for (unsigned int i = 0; i < count; i++) {
        all[i].port = static_cast<uint16_t>(first_port + (number + i) % client_ports);
        all[i].server_port = static_cast<uint16_t>(https + (number + i) / client_ports);
    }
    for (unsigned int index = 0; index < last; index++)
        for (teller &one : all) {
            frame next = packet_of(&one, index, length, hello);
            if (index >= first)
                told.push_back(std::move(next));
        }
    return told;
}
