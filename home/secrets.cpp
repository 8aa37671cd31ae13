#include "home/secrets.h"

#include <nettle/memops.h>
#include <nettle/sha2.h>
#include <sys/random.h>

#include <vector>

namespace {

std::string hex_of(const std::vector<uint8_t> &bytes)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

} // namespace

std::string random_hex(size_t bytes)
{
    std::vector<uint8_t> drawn(bytes);
    return getrandom(drawn.data(), bytes, 0) == static_cast<ssize_t>(bytes) ? hex_of(drawn) : "";
}

std::string digest_of(const std::string &text)
{
    std::vector<uint8_t> digest(SHA256_DIGEST_SIZE);
    sha256_ctx context;
    sha256_init(&context);
    sha256_update(&context, text.size(), reinterpret_cast<const uint8_t *>(text.data()));
    sha256_digest(&context, digest.size(), digest.data());
    return hex_of(digest);
}

bool same_secret(const std::string &one, const std::string &other)
{
    return one.size() == other.size() && memeql_sec(one.data(), other.data(), one.size());
}
