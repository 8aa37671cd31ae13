#include "feed/client_hello.h"

#include "feed/host_name.h"

#include <algorithm>
#include <string.h>
#include <strings.h>
#include <vector>

namespace {

enum : uint8_t { record_handshake = 0x16, message_client_hello = 1, name_host = 0 };
enum : uint16_t { extension_server_name = 0 };
constexpr uint32_t longest_hello = 0x10000;

// Public names in front of encrypted hellos: they tell of a hosting company only, never of the service behind it.
constexpr const char *ech_fronts[] = {"cloudflare-ech.com", "public.tls-ech.dev", "cover.defo.ie", "tls-ech.dev"};

// Words that begin an HTTP/1 request.
constexpr const char *http_methods[] = {"GET ", "POST ", "HEAD ", "PUT ", "OPTIONS ", "DELETE ", "PATCH "};

hello_answer answer_of(const std::string &host)
{
    for (const char *front : ech_fronts)
        if (host == front)
            return {hello_outcome::nameless, host};
    return {host.empty() ? hello_outcome::nameless : hello_outcome::named, host};
}

std::string read_server_name(byte_view extension)
{
    byte_reader list(extension);
    list.skip(2);
    while (list.left() > 0 && !list.failed) {
        uint8_t type = list.u8();
        byte_view name = list.take(list.u16());
        if (!list.failed && type == name_host)
            return host_name_of(name);
    }
    return {};
}

hello_answer read_http(byte_view stream)
{
    const char *text = reinterpret_cast<const char *>(stream.data);
    const char *end = text + stream.size;
    static constexpr char line_end[] = "\r\n";
    const char *line = std::search(text, end, line_end, line_end + 2);
    while (line != end) {
        line += 2;
        const char *next = std::search(line, end, line_end, line_end + 2);
        if (next == line)
            return {hello_outcome::nameless, {}};
        if (next == end)
            break;
        if (next - line > 5 && strncasecmp(line, "host:", 5) == 0) {
            const char *value = std::find_if(line + 5, next, [](char c) { return c != ' '; });
            const char *value_end = std::find_if(value, next, [](char c) { return c == ':' || c == ' '; });
            return answer_of(host_name_of({reinterpret_cast<const uint8_t *>(value), static_cast<size_t>(value_end - value)}));
        }
        line = next;
    }
    return {hello_outcome::needs_more, {}};
}

// A method, or what came of one.
bool may_be_http(byte_view stream)
{
    for (const char *method : http_methods)
        if (memcmp(stream.data, method, std::min(stream.size, strlen(method))) == 0)
            return true;
    return false;
}

// The handshake bytes of the records; false when something else stands between them.
bool unwrap_records(byte_view stream, std::vector<uint8_t> *handshake)
{
    byte_reader records(stream);
    while (records.left() > 0) {
        uint8_t type = records.bytes.data[records.at];
        if (type != record_handshake)
            return !handshake->empty();
        records.skip(1);
        uint8_t version = records.u8();
        records.skip(1);
        uint16_t length = records.u16();
        if (records.failed)
            return version == 3 || stream.size < 2;
        if (version != 3 || length == 0)
            return false;
        byte_view content = records.take(std::min<size_t>(length, records.left()));
        handshake->insert(handshake->end(), content.data, content.data + content.size);
    }
    return true;
}

} // namespace

hello_answer read_client_hello(byte_view handshake)
{
    byte_reader header(handshake);
    uint8_t type = header.u8();
    uint32_t length = header.u24();
    if (handshake.size > 0 && type != message_client_hello)
        return {hello_outcome::none, {}};
    if (header.failed)
        return {hello_outcome::needs_more, {}};
    if (length < 38 || length > longest_hello)
        return {hello_outcome::none, {}};
    bool is_whole = header.left() >= length;
    hello_answer without_name{is_whole ? hello_outcome::nameless : hello_outcome::needs_more, {}};

    byte_reader hello(handshake.part(4, length));
    uint16_t version = hello.u16();
    hello.skip(32);
    uint8_t session = hello.u8();
    hello.skip(session);
    uint16_t suites = hello.u16();
    hello.skip(suites);
    hello.skip(hello.u8()); // compression methods
    hello.skip(2);          // length of the extensions, which end with the message
    if (!hello.failed && (version >> 8 != 3 || session > 32 || suites % 2 != 0))
        return {hello_outcome::none, {}};
    while (!hello.failed && hello.left() > 0) {
        uint16_t kind = hello.u16();
        byte_view extension = hello.take(hello.u16());
        if (!hello.failed && kind == extension_server_name)
            return answer_of(read_server_name(extension));
    }
    return without_name;
}

hello_answer read_client_stream(byte_view stream)
{
    if (stream.size == 0)
        return {hello_outcome::needs_more, {}};
    if (stream.data[0] != record_handshake)
        return may_be_http(stream) ? read_http(stream) : hello_answer{hello_outcome::none, {}};
    std::vector<uint8_t> handshake;
    if (!unwrap_records(stream, &handshake))
        return {hello_outcome::none, {}};
    return read_client_hello({handshake.data(), handshake.size()});
}
