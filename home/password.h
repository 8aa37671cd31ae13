// Passwords: kept as bcrypt only, which every C library's crypt knows.
//
// A check takes 50 to 100 milliseconds on a desktop's processor and up to half a second on a router's, during which the loop
// stands still; whoever lets people ask for checks limits their rate.
#ifndef HOME_PASSWORD_H
#define HOME_PASSWORD_H

#include <stddef.h>

#include <string>

// Bytes; bcrypt takes no more into account.
constexpr size_t password_least = 8, password_most = 72;

// Null when it will do, else what is wrong with it.
const char *password_fault(const std::string &password);
// "" when the C library cannot.
std::string hash_password(const std::string &password);
// An empty hash, of nobody, takes as long as any other and is never right.
bool check_password(const std::string &password, const std::string &hash);

// From the terminal, twice and without showing it, or the first line of standard input. False after saying why.
bool ask_password(std::string *password);

#endif
