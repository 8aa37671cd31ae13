#include "feed/address.h"

#include <arpa/inet.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>

namespace {

constexpr const char *private_networks[] = {"10.0.0.0/8",     "172.16.0.0/12", "192.168.0.0/16",
                                            "169.254.0.0/16", "fc00::/7",      "fe80::/10"};

uint64_t draw_secret()
{
    uint64_t secret = 0;
    if (getrandom(&secret, sizeof(secret), GRND_NONBLOCK) != sizeof(secret))
        secret = reinterpret_cast<uintptr_t>(&secret);
    return secret;
}

uint64_t mix(uint64_t hash, uint64_t word)
{
    hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
    return hash ^ hash >> 29;
}

unsigned int bits_of(const ip_address &address)
{
    return address.family == 4 ? 32 : 128;
}

} // namespace

uint64_t hash_of(const ip_address &address, uint64_t with)
{
    static const uint64_t secret = draw_secret();
    uint64_t words[2];
    memcpy(words, address.bytes.data(), sizeof(words));
    return mix(mix(mix(secret ^ address.family, with), words[0]), words[1]);
}

ip_address ipv4_address(const uint8_t *bytes)
{
    ip_address address;
    address.family = 4;
    memcpy(address.bytes.data(), bytes, 4);
    return address;
}

ip_address ipv6_address(const uint8_t *bytes)
{
    ip_address address;
    address.family = 6;
    memcpy(address.bytes.data(), bytes, 16);
    return address;
}

bool read_address(const std::string &text, ip_address *out)
{
    uint8_t bytes[16];
    if (inet_pton(AF_INET, text.c_str(), bytes) == 1)
        *out = ipv4_address(bytes);
    else if (inet_pton(AF_INET6, text.c_str(), bytes) == 1)
        *out = ipv6_address(bytes);
    else
        return false;
    return true;
}

std::string address_text(const ip_address &address)
{
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(address.family == 4 ? AF_INET : AF_INET6, address.bytes.data(), text, sizeof(text));
    return text;
}

bool is_special(const ip_address &address)
{
    const auto &bytes = address.bytes;
    if (address.family == 4)
        return bytes[0] >= 224 || bytes[0] == 0;
    return bytes[0] == 0xFF || bytes == std::array<uint8_t, 16>{};
}

bool is_link_local(const ip_address &address)
{
    const auto &bytes = address.bytes;
    return address.family == 4 ? bytes[0] == 169 && bytes[1] == 254 : bytes[0] == 0xFE && (bytes[1] & 0xC0) == 0x80;
}

bool read_network(const std::string &text, ip_network *out)
{
    size_t slash = text.find('/');
    if (!read_address(text.substr(0, slash), &out->base))
        return false;
    out->prefix = bits_of(out->base);
    if (slash == std::string::npos)
        return true;
    const char *digits = text.c_str() + slash + 1;
    char *end = nullptr;
    unsigned long bits = strtoul(digits, &end, 10);
    if (*digits < '0' || *digits > '9' || *end || bits > out->prefix)
        return false;
    out->prefix = static_cast<unsigned int>(bits);
    return true;
}

bool contains(const ip_network &network, const ip_address &address)
{
    if (network.base.family != address.family)
        return false;
    unsigned int whole = network.prefix / 8;
    unsigned int rest = network.prefix % 8;
    if (memcmp(network.base.bytes.data(), address.bytes.data(), whole) != 0)
        return false;
    return rest == 0 || (network.base.bytes[whole] ^ address.bytes[whole]) >> (8 - rest) == 0;
}

bool read_lan(const std::string &text, std::vector<ip_network> *out)
{
    out->clear();
    for (size_t begin = 0; begin <= text.size();) {
        size_t end = std::min(text.find(',', begin), text.size());
        std::string piece = text.substr(begin, end - begin);
        begin = end + 1;
        ip_network network;
        if (piece == "private") {
            for (const char *known : private_networks) {
                read_network(known, &network);
                out->push_back(network);
            }
        } else if (read_network(piece, &network)) {
            out->push_back(network);
        } else {
            return false;
        }
    }
    return true;
}

bool contains(const std::vector<ip_network> &networks, const ip_address &address)
{
    for (const ip_network &network : networks)
        if (contains(network, address))
            return true;
    return false;
}
