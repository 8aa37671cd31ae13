// Start-up: opens the three inputs, the log and the tracking, then serves for ever. A signal ends the process at once, saving
// nothing: settings are on disk since they were made, and usage is counted anew.
#include "appident/app_ident.h"
#include "common/counters.h"
#include "common/log.h"
#include "common/sec_plg_common.h"
#include "igd/igd_lib.h"

#include <linux/netlink.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr const char *request_socket_path = "/tmp/.appident.ipc";
constexpr int router_message_family = 176;
// Connection tracking's groups: DNS, HTTP, updates, new connections. Accounting messages come on them.
constexpr int traffic_groups[] = {7, 8, 2, 1};
constexpr int ending_signals[] = {SIGTERM, SIGINT, SIGQUIT, SIGHUP};
constexpr int receive_buffer_bytes = 4 * 1024 * 1024;

// libnl's own buffer holds 78 messages, and groups are joined 21 seconds before the loop reads. Without the right to force it
// the system's limit applies.
void enlarge_receive_buffer(int fd)
{
    int size = receive_buffer_bytes;
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size)) != 0)
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    // A full buffer is counted, not reported as an error of the next read.
    int on = 1;
    setsockopt(fd, SOL_NETLINK, NETLINK_NO_ENOBUFS, &on, sizeof(on));
}

// The traffic descriptor, -1 on failure.
int open_traffic(void)
{
    nl_sock *socket = nltool_alloc_handle();
    if (!socket || nl_connect(socket, NETLINK_NETFILTER) < 0)
        return -1;
    for (int group : traffic_groups) {
        if (nl_socket_add_membership(socket, group) < 0)
            return -1;
    }
    int fd = nl_socket_get_fd(socket);
    enlarge_receive_buffer(fd);
    return fd;
}

} // namespace

void sig_handler(int)
{
    _exit(1);
}

int main(void)
{
    counters_init();
    int request_fd = nt_ipcserver_init2(request_socket_path, cgi_event_handler);
    for (int signum : ending_signals)
        signal(signum, sig_handler);
    igd_netlink_handler messages = {};
    __nlk_msg_init(&messages, router_message_family, 0, 0);
    int traffic_fd = open_traffic();
    if (traffic_fd < 0)
        return -1;
    url_check_init();
    if (plugin_common_init() != 0)
        return -1;
    if (app_ident_init() != 0)
        return -1;
    url_check_log(0, "[main]IPCTNL_MSG_CT_DPI_ACCT %d", IPCTNL_MSG_CT_DPI_ACCT);
    sleep(1);
    serve_events(traffic_fd, &messages, request_fd);
}
