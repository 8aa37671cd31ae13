// The server's name in the first message of a TLS client, also of one that came in part only, and in a plain HTTP request.
#ifndef FEED_CLIENT_HELLO_H
#define FEED_CLIENT_HELLO_H

#include "feed/byte_view.h"

#include <string>

enum class hello_outcome {
    needs_more, // nothing wrong so far
    named,      // a usable name
    nameless,   // a whole hello without one, or with the name of a front that hides the real one
    none,       // not a hello
};

struct hello_answer {
    hello_outcome outcome = hello_outcome::needs_more;
    std::string host;                // of a named one; also the front's of a nameless one
    bool is_unreadable_quic = false; // the packet is a QUIC Initial that cannot be read; another one may tell the name
};

// A handshake message, from its type on, as far as it came.
hello_answer read_client_hello(byte_view handshake);

// A client's bytes on a TCP connection, from the first: TLS records or an HTTP request.
hello_answer read_client_stream(byte_view stream);

#endif
