#include "feed/dns_answer.h"

#include "feed/host_name.h"

#include <algorithm>

namespace {

enum : uint16_t { type_a = 1, type_cname = 5, type_aaaa = 28, class_internet = 1 };
constexpr int most_records = 64;
constexpr int most_jumps = 16;

// A name at the reader's place, which moves behind it; compressed ones are followed. Empty with `failed` set when it makes no
// sense; empty alone when it is no host name.
std::string read_name(byte_reader *reader)
{
    std::string name;
    byte_reader at = *reader;
    bool jumped = false;
    for (int jumps = 0; jumps <= most_jumps && !at.failed;) {
        uint8_t size = at.u8();
        if (at.failed)
            break;
        if (size >= 0xC0) {
            size_t target = (size & 0x3Fu) << 8 | at.u8();
            if (!jumped)
                *reader = at;
            jumped = true;
            jumps++;
            if (at.failed || target >= at.bytes.size)
                break;
            at.at = target;
            continue;
        }
        if (size == 0) {
            if (!jumped)
                *reader = at;
            return host_name_of({reinterpret_cast<const uint8_t *>(name.data()), name.size()});
        }
        byte_view label = at.take(size);
        if (size > 63 || name.size() + size > longest_host_name + 1)
            break;
        if (!name.empty())
            name += '.';
        name.append(reinterpret_cast<const char *>(label.data), label.size);
    }
    reader->failed = true;
    return {};
}

bool is_known(const std::vector<std::string> &owners, const std::string &name)
{
    return std::find(owners.begin(), owners.end(), name) != owners.end();
}

// The question's own records and those of the names that it leads to.
void read_records(byte_reader *reader, int count, dns_answer *out)
{
    std::vector<std::string> owners{out->question};
    for (int i = 0; i < std::min(count, most_records) && out->addresses.size() < most_dns_addresses; i++) {
        std::string owner = read_name(reader);
        uint16_t type = reader->u16();
        uint16_t of_class = reader->u16();
        uint32_t ttl = reader->u32();
        byte_reader data(reader->bytes);
        data.at = std::min(reader->at + 2, reader->bytes.size);
        byte_view value = reader->take(reader->u16());
        if (reader->failed)
            return;
        if (of_class != class_internet || !is_known(owners, owner))
            continue;
        if (type == type_a && value.size == 4)
            out->addresses.push_back({ipv4_address(value.data), ttl});
        else if (type == type_aaaa && value.size == 16)
            out->addresses.push_back({ipv6_address(value.data), ttl});
        else if (type == type_cname)
            owners.push_back(read_name(&data));
    }
}

} // namespace

bool read_dns_answer(byte_view message, dns_answer *out)
{
    out->question.clear();
    out->addresses.clear();
    byte_reader reader(message);
    reader.skip(2);
    uint16_t flags = reader.u16();
    uint16_t questions = reader.u16();
    uint16_t answers = reader.u16();
    reader.skip(4);
    bool is_good_answer = (flags & 0xF80F) == 0x8000; // a response to a plain query, without an error
    if (reader.failed || !is_good_answer || questions != 1 || answers == 0)
        return false;
    out->question = read_name(&reader);
    uint16_t type = reader.u16();
    reader.skip(2);
    if (reader.failed || out->question.empty() || (type != type_a && type != type_aaaa))
        return false;
    read_records(&reader, answers, out);
    return !out->addresses.empty();
}
