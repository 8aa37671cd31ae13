// Start-up: opens the three inputs, the log and the tracking, then serves for ever. A signal ends the process at once, saving
// nothing: settings are on disk since they were made, and usage is counted anew.
#include "appident/event_loop.h"
#include "appident/requests/requests.h"
#include "appident/router/traffic_socket.h"
#include "appident/startup.h"
#include "common/counters.h"
#include "common/log.h"
#include "common/sec_plg_common.h"
#include "igd/igd_lib.h"

#include <signal.h>
#include <unistd.h>

namespace {

constexpr const char *request_socket_path = "/tmp/.appident.ipc";
constexpr int router_message_family = 176;
constexpr int ending_signals[] = {SIGTERM, SIGINT, SIGQUIT, SIGHUP};

} // namespace

void sig_handler(int)
{
    _exit(1);
}

int main(void)
{
    int request_fd = nt_ipcserver_init2(request_socket_path, cgi_event_handler);
    for (int signum : ending_signals)
        signal(signum, sig_handler);
    igd_netlink_handler messages = {};
    messages.sock_fd = -1; // stays so when the channel cannot be opened; the loop then waits for the others
    __nlk_msg_init(&messages, router_message_family, 0, 0);
    int traffic_fd = open_traffic_socket();
    if (traffic_fd < 0)
        return -1;
    counters_init(); // only now: an instance that may not start leaves the page to the one that runs
    url_check_init();
    if (plugin_common_init() != 0)
        return -1;
    if (app_ident_init() != 0)
        return -1;
    url_check_log(0, "[main]IPCTNL_MSG_CT_DPI_ACCT %d", IPCTNL_MSG_CT_DPI_ACCT);
    sleep(1);
    serve_events(traffic_fd, &messages, request_fd);
}
