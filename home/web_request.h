// A request to the page's server, as its handler meets it after all checks, and the answer to it.
#ifndef HOME_WEB_REQUEST_H
#define HOME_WEB_REQUEST_H

#include "common/guards.h"
#include "home/accounts.h"
#include "home/history_json.h"

#include <string>
#include <utility>
#include <vector>

struct MHD_Connection;
struct MHD_Response;
struct household;
struct web_server;

// Each reason to refuse a request: its code, the HTTP status, and a text for technicians; the page says it in the household's
// language by the code. Each is counted.
// clang-format off
#define WEB_REFUSALS(row) \
    row(bad_request,       400, "the request makes no sense") \
    row(not_logged_in,     401, "log in first") \
    row(wrong_password,    401, "no such name, or another password") \
    row(forbidden,         403, "this account may not do that") \
    row(wrong_origin,      403, "the request comes from another site") \
    row(wrong_token,       403, "X-Appident-Token is missing or is not that of the session") \
    row(not_found,         404, "there is nothing here") \
    row(wrong_method,      405, "this cannot be done here") \
    row(too_large,         413, "the body is larger than 64 KiB") \
    row(wrong_type,        415, "the body must be application/json") \
    row(wrong_host,        421, "the request is for another host; own names can be added in home.json, \"web\": {\"hosts\": [...]}") \
    row(locked_out,        429, "too many wrong passwords from this address") \
    row(too_many_requests, 429, "too many requests") \
    row(daemon_silent,     502, "the daemon does not answer, or not as asked") \
    row(busy,              503, "no room for more; try again")
// clang-format on
#define WEB_REFUSAL_ID(code, status, text) refused_##code,
enum web_refusal : u32 { WEB_REFUSALS(WEB_REFUSAL_ID) web_refusal_end };
#undef WEB_REFUSAL_ID

struct web_request {
    household *home = nullptr;
    web_server *server = nullptr;
    MHD_Connection *connection = nullptr;
    std::string method, path;
    std::string operand; // the piece of the path that the route leaves open: a MAC, a name
    std::string text;    // the body as it came
    json_tree body;      // an object, where the method is not GET
    std::string address; // the client's
    std::string client;  // stands for it in limits
    bool from_this_box = false;
    int64_t time = 0;    // epoch second
    std::string secret;  // of the session's cookie, "" without one
    std::string session; // its digest
    account who;         // id 0: not logged in
};

struct web_answer {
    unsigned int status = 200;
    web_refusal refused = web_refusal_end; // why, for the counters
    std::string type = "application/json";
    std::string text;
    std::vector<std::pair<const char *, std::string>> headers;
    MHD_Response *response = nullptr; // in place of the text: a file, a stream
};
using web_handler = void (*)(web_request *asked, web_answer *answer);

void refuse(web_answer *answer, web_refusal why);
void answer_with(web_answer *answer, const json_tree &body);

// "" when there is none.
std::string query_value(const web_request &asked, const char *name);
std::string header_value(const web_request &asked, const char *name);
// Of the body; `otherwise` when it is missing, false when it is no text or longer than `most` bytes.
bool body_text(const web_request &asked, const char *key, size_t most, const char *otherwise, std::string *out);

// The devices that the account may see, and the apps.
known_names names_for(const web_request &asked);
// The device that the path names; null, with the request refused, when there is none that the account may see.
const known_device *named_device(const web_request &asked, const known_names &known, web_answer *answer);
// Keeps who changed what.
void note_change(const web_request &asked, const std::string &device, const char *what, const std::string &before,
                 const std::string &after);

#endif
