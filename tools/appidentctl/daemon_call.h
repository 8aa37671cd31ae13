// One request to the daemon, with the reason on standard error when it fails.
#ifndef APPIDENTCTL_DAEMON_CALL_H
#define APPIDENTCTL_DAEMON_CALL_H

#include "platform/linux/client/request_client.h"
#include "tools/appidentctl/places.h"

#include <string>
#include <sys/types.h>

// Asks, after waiting for a starting daemon as long as the time limit allows.
// exit_done with the answer filled, exit_refused (nothing said: the caller knows what a refusal means), exit_usage or
// exit_unreachable.
int ask(const places &where, const client_request &request, client_answer *answer);

// The same for a request that is answered with JSON; the tree is null when there is nothing to report.
struct json_answer {
    heap_text text;
    json_tree tree;
};
int ask_for_json(const places &where, unsigned int id, const std::string &device, json_answer *answer);

// Why nobody answers at the socket, in a line of its own; says what to do.
std::string why_unreachable(const places &where);
// What a person does who lacks the rights of this group.
std::string how_to_join(gid_t id);

#endif
