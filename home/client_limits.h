// How often the page may be asked from one address, and how often a password may be wrong.
//
// In memory only: what is asked for too fast is gone with the program. An IPv6 client is known by its /64, as it has all of
// that.
#ifndef HOME_CLIENT_LIMITS_H
#define HOME_CLIENT_LIMITS_H

#include <stdint.h>

#include <string>
#include <unordered_map>

struct client_record {
    double requests = 0; // that it may still make at `counted_ms`
    int64_t counted_ms = 0;
    int wrong = 0; // passwords in a row
    int64_t wrong_ms = 0;
};

struct client_limits {
    std::unordered_map<std::string, client_record> clients; // bounded; the longest silent gives way
    double checks = 0;                                      // of passwords, from all clients together
    int64_t checks_counted_ms = 0;
};

// Takes one request off what the client may make now. Times are uptime in milliseconds.
bool may_ask(client_limits *limits, const std::string &client, int64_t now_ms);
// Takes one check of a password off what all may ask for: it costs a good deal of the processor.
bool may_check_password(client_limits *limits, int64_t now_ms);
// Seconds for which the client's passwords are not looked at, 0 when they are.
int64_t locked_out_for(const client_limits &limits, const std::string &client, int64_t now_ms);
void note_password(client_limits *limits, const std::string &client, bool right, int64_t now_ms);

#endif
