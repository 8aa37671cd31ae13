// The netlink socket on which connection tracking multicasts its messages.
#ifndef APPIDENT_ROUTER_TRAFFIC_SOCKET_H
#define APPIDENT_ROUTER_TRAFFIC_SOCKET_H

// Opens it, joins the groups, makes room for bursts and lets accounting messages pass only. The descriptor, open as long as the
// process; -1 on failure.
int open_traffic_socket(void);

#endif
