// A receiver built the usual way, from libnl's own parts: what accounting messages cost a program that is written with these.
//
// nl_recvmsgs_default reads and calls back, nlmsg_parse and nested parses fill tables of attributes, inet_ntop writes the four
// addresses. It keeps nothing and looks nothing up.
#ifndef BENCH_PEER_H
#define BENCH_PEER_H

#include "igd/igd_types.h"

struct nl_sock;

void prepare_the_usual_way(nl_sock *socket);
// Receives and decodes what is there, a message or more, or waits for one.
void receive_the_usual_way(nl_sock *socket);
// Messages that were decoded whole so far; any thread.
u32 messages_of_peer();

#endif
