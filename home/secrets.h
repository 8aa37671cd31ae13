// Random tokens, their digests, and comparing without telling by the time it takes how much is equal.
#ifndef HOME_SECRETS_H
#define HOME_SECRETS_H

#include <stddef.h>

#include <string>

// `bytes` random bytes of the kernel in lower-case hex digits; "" when it gives none.
std::string random_hex(size_t bytes);
// SHA-256 in lower-case hex digits.
std::string digest_of(const std::string &text);
bool same_secret(const std::string &one, const std::string &other);

#endif
