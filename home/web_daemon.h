// What the page's server asks of the daemon on behalf of a person, and how it changes what the daemon keeps.
//
// Each change is read back: the daemon reports success also where it stores nothing. A question waits two seconds at most,
// during which the loop stands still.
#ifndef HOME_WEB_DAEMON_H
#define HOME_WEB_DAEMON_H

#include "home/web_state.h"
#include "platform/linux/client/request_client.h"

// The answer's text in *answer, where there is one.
request_outcome ask_daemon_for(const web_request &asked, const client_request &request, heap_text *answer = nullptr);

// The device's stored limits, an array within the tree; null where none are stored or its role is not 1. False when the daemon
// does not answer.
bool read_limits(const web_request &asked, const std::string &mac, json_tree *tree, const cJSON **limits);
// False when the daemon does not store them as given.
bool write_limits(const web_request &asked, const std::string &mac, const cJSON *limits);

bool read_payments(const web_request &asked, const std::string &mac, appident_payment_notify_st *switches);
bool write_payments(const web_request &asked, const std::string &mac, const appident_payment_notify_st &switches);

// Has the platform library change the name (null: not) and the role (-1: not), and takes in what it says then.
bool write_device(const web_request &asked, const std::string &mac, const std::string *name, int64_t role);

#endif
