// The router messaging channel on stock Linux: the Unix datagram socket runtime_dir/messages.sock, mode 0660, of the
// household's group.
//
// Who has router messages to tell sends them there, the bytes of the record alone, one message a datagram. The kernel lets
// root, the daemon's user and the group send, and nobody else. A worker takes every message from the socket into a queue, so
// that no sender waits for the daemon; the descriptor of the handler is readable while the queue holds one. What comes while
// the queue is full is dropped and counted.
#ifndef PLATFORM_LINUX_MESSAGE_CHANNEL_H
#define PLATFORM_LINUX_MESSAGE_CHANNEL_H

#include <stddef.h>

constexpr const char *message_socket_name = "messages.sock";

// Whether there is a daemon that takes messages.
bool router_channel_is_open();
// A message of the library's own, queued like those of others. Any thread. False when there is no room.
bool queue_router_message(const void *bytes, size_t length);

#endif
