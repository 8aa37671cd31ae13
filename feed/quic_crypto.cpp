#include "feed/quic_crypto.h"

#include <memory>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <string.h>

namespace {

struct context_release {
    void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
};
using cipher_context = std::unique_ptr<EVP_CIPHER_CTX, context_release>;
using secret_bytes = std::array<uint8_t, 32>;

constexpr quic_salt salt_1 = {0x38, 0x76, 0x2c, 0xf7, 0xf5, 0x59, 0x34, 0xb3, 0x4d, 0x17,
                              0x9a, 0xe6, 0xa4, 0xc8, 0x0c, 0xad, 0xcc, 0xbb, 0x7f, 0x0a};
constexpr quic_salt salt_2 = {0x0d, 0xed, 0xe3, 0xde, 0xf7, 0x00, 0xa6, 0xdb, 0x81, 0x93,
                              0x81, 0xbe, 0x6e, 0x26, 0x9d, 0xcb, 0xf9, 0xbd, 0x2e, 0xd9};
constexpr quic_salt salt_2_draft = {0xa7, 0x07, 0xc2, 0x03, 0xa5, 0x9b, 0x47, 0x18, 0x4a, 0x1d,
                                    0x62, 0xca, 0x57, 0x04, 0x06, 0xea, 0x7a, 0xe3, 0xe5, 0xd3};
constexpr quic_salt salt_29 = {0xaf, 0xbf, 0xec, 0x28, 0x99, 0x93, 0xd2, 0x4c, 0x9e, 0x97,
                               0x86, 0xf1, 0x9c, 0x61, 0x11, 0xe0, 0x43, 0x90, 0xa8, 0x99};
constexpr quic_salt salt_23 = {0xc3, 0xee, 0xf7, 0x12, 0xc7, 0x2e, 0xbb, 0x5a, 0x11, 0xa7,
                               0xd2, 0x43, 0x2b, 0xb4, 0x63, 0x65, 0xbe, 0xf9, 0xf5, 0x02};

constexpr quic_format format_1 = {0, 3, "quic key", "quic iv", "quic hp"};
constexpr quic_format format_2 = {1, 0, "quicv2 key", "quicv2 iv", "quicv2 hp"};

// Versions 1 and 2, and the drafts that clients spoke for years; one of them under a number of its own.
constexpr quic_version versions[] = {
    {0x00000001, 0x00000001, format_1, salt_1},       {0x6b3343cf, 0x6b3343cf, format_2, salt_2},
    {0x709a50c4, 0x709a50c4, format_2, salt_2_draft}, {0xff000021, 0xff000022, format_1, salt_1},
    {0xff00001d, 0xff000020, format_1, salt_29},      {0xff000017, 0xff00001c, format_1, salt_23},
    {0xfaceb002, 0xfaceb002, format_1, salt_23},
};

bool hmac(byte_view key, byte_view data, secret_bytes *out)
{
    unsigned int size = 0;
    return HMAC(EVP_sha256(), key.data, static_cast<int>(key.size), data.data, data.size, out->data(), &size) &&
           size == out->size();
}

// HKDF-Expand-Label with an empty context, for up to 32 bytes.
bool expand(const secret_bytes &secret, const char *label, uint8_t *out, size_t size)
{
    uint8_t info[64];
    size_t label_size = strlen(label);
    uint8_t *at = info;
    *at++ = 0;
    *at++ = static_cast<uint8_t>(size);
    *at++ = static_cast<uint8_t>(6 + label_size);
    memcpy(at, "tls13 ", 6);
    memcpy(at + 6, label, label_size);
    at += 6 + label_size;
    *at++ = 0; // no context
    *at++ = 1; // first and only block
    secret_bytes block;
    if (!hmac({secret.data(), secret.size()}, {info, static_cast<size_t>(at - info)}, &block))
        return false;
    memcpy(out, block.data(), size);
    return true;
}

EVP_CIPHER_CTX *shared_context()
{
    static const cipher_context context(EVP_CIPHER_CTX_new());
    return context.get();
}

} // namespace

const quic_version *find_quic_version(uint32_t version)
{
    for (const quic_version &known : versions)
        if (version >= known.first && version <= known.last)
            return &known;
    return nullptr;
}

bool derive_quic_keys(uint32_t version, byte_view id, quic_keys *out)
{
    const quic_version *known = find_quic_version(version);
    if (!known || id.size > out->id.size())
        return false;
    out->version = version;
    out->id_size = static_cast<uint8_t>(id.size);
    if (id.size > 0)
        memcpy(out->id.data(), id.data, id.size);
    secret_bytes initial, client;
    return hmac({known->salt.data(), known->salt.size()}, {out->id.data(), id.size}, &initial) &&
           expand(initial, "client in", client.data(), client.size()) &&
           expand(client, known->format.key_label, out->key.data(), out->key.size()) &&
           expand(client, known->format.iv_label, out->iv.data(), out->iv.size()) &&
           expand(client, known->format.header_label, out->header_key.data(), out->header_key.size());
}

bool aes_block(const std::array<uint8_t, 16> &key, const uint8_t *in, uint8_t *out)
{
    EVP_CIPHER_CTX *context = shared_context();
    int size = 0;
    return context && EVP_EncryptInit_ex(context, EVP_aes_128_ecb(), nullptr, key.data(), nullptr) == 1 &&
           EVP_CIPHER_CTX_set_padding(context, 0) == 1 && EVP_EncryptUpdate(context, out, &size, in, 16) == 1 && size == 16;
}

int aes_gcm_open(const std::array<uint8_t, 16> &key, const std::array<uint8_t, 12> &nonce, byte_view header, byte_view sealed,
                 uint8_t *out)
{
    EVP_CIPHER_CTX *context = shared_context();
    uint8_t tag[16];
    if (!context || sealed.size < sizeof(tag))
        return -1;
    size_t plain = sealed.size - sizeof(tag);
    memcpy(tag, sealed.data + plain, sizeof(tag));
    int size = 0, rest = 0, unused = 0;
    if (EVP_DecryptInit_ex(context, EVP_aes_128_gcm(), nullptr, key.data(), nonce.data()) != 1 ||
        EVP_DecryptUpdate(context, nullptr, &unused, header.data, static_cast<int>(header.size)) != 1 ||
        EVP_DecryptUpdate(context, out, &size, sealed.data, static_cast<int>(plain)) != 1 ||
        EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_GCM_SET_TAG, sizeof(tag), tag) != 1 ||
        EVP_DecryptFinal_ex(context, out + size, &rest) != 1)
        return -1;
    return size + rest;
}
