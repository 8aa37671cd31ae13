// Addresses of this box, as texts: the one that the page listens on, and those that lead to it.
#ifndef HOME_LAN_ADDRESS_H
#define HOME_LAN_ADDRESS_H

#include <sys/socket.h>

#include <string>
#include <vector>

// The first IPv4 address of the interface, "" when it has none.
std::string address_of_interface(const std::string &interface);
// The address itself; all of the box for "0.0.0.0" and "::".
std::vector<std::string> addresses_behind(const std::string &address);
bool is_loopback(const std::string &address);
bool is_any_address(const std::string &address);

// False for a text that is no address.
bool read_address(const std::string &text, int64_t port, sockaddr_storage *out);
// An IPv4 address in an IPv6 one is told as such; "" for what is neither.
std::string address_text(const sockaddr *address);
// What stands for a client: an IPv4 address, or the /64 of an IPv6 one.
std::string client_network(const std::string &address);

#endif
