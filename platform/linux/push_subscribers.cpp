#include "platform/linux/push_subscribers.h"

#include "common/guards.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/directories.h"
#include "platform/linux/local_socket.h"
#include "platform/linux/platform_counters.h"

#include <poll.h>
#include <sys/socket.h>

namespace {

constexpr int subscribers_most = 16;
// How far behind a subscriber may fall.
constexpr int send_buffer = 256 * 1024;
constexpr int look_for_spare_milliseconds = 1000;

local_server server = no_local_server;
int subscribers[subscribers_most];
int subscriber_count = 0;

void let_go(int place)
{
    close(subscribers[place]);
    subscribers[place] = subscribers[--subscriber_count];
}

// All who wait at the door: who connected before a push gets it. The count keeps a crowd from holding up the pushes.
void take_in()
{
    for (int taken = 0; taken < subscribers_most; ++taken) {
        bool refused = false;
        fd_guard peer(accept_local_peer(&server, &refused));
        if (peer.get() < 0 && !refused)
            return;
        if (refused || subscriber_count == subscribers_most) {
            count_platform(platform_subscribers_refused);
            continue;
        }
        setsockopt(peer.get(), SOL_SOCKET, SO_SNDBUF, &send_buffer, sizeof(send_buffer));
        shutdown(peer.get(), SHUT_RD);
        subscribers[subscriber_count++] = peer.release();
    }
}

} // namespace

void open_subscribers()
{
    char path[state_path_size];
    runtime_path(path, "pushes.sock");
    make_directory(settings().runtime_dir, 0755);
    server = open_local_server(path, SOCK_STREAM);
}

void wait_for_subscribers(int wake_fd)
{
    for (;;) {
        // Without a spare descriptor a client that cannot be let in would wake us for ever.
        bool welcome = server.socket.fd >= 0 && has_spare(&server);
        int patience = server.socket.fd >= 0 && !welcome ? look_for_spare_milliseconds : -1;
        // A hang-up is reported without being asked for; poll passes over a negative descriptor.
        pollfd watched[2 + subscribers_most] = {{wake_fd, POLLIN, 0}, {welcome ? server.socket.fd : -1, POLLIN, 0}};
        for (int i = 0; i < subscriber_count; ++i)
            watched[2 + i] = {subscribers[i], 0, 0};
        if (poll(watched, static_cast<nfds_t>(2 + subscriber_count), patience) < 0)
            continue;
        for (int i = subscriber_count - 1; i >= 0; --i)
            if (watched[2 + i].revents)
                let_go(i);
        if (watched[1].revents)
            take_in();
        if (watched[0].revents)
            return;
    }
}

void send_to_subscribers(const char *line, size_t length)
{
    for (int i = subscriber_count - 1; i >= 0; --i) {
        if (send(subscribers[i], line, length, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(length))
            continue;
        count_platform(platform_subscribers_dropped);
        let_go(i);
    }
}
