// The table of what can be asked of the page's server, and the handlers that it names.
#ifndef HOME_WEB_ROUTES_H
#define HOME_WEB_ROUTES_H

#include "home/web_request.h"

constexpr u32 who_anybody = 0; // also without a login
constexpr u32 who_all = kind_parent | kind_child | kind_technician;
constexpr u32 who_adults = kind_parent | kind_technician;

struct web_route {
    const char *method;
    const char *path; // "*" stands for one piece, the request's operand
    u32 who;          // bits of account_kind
    bool needs_token; // writes do, but for the login
    web_handler answer;
};
// Ends with a null method.
extern const web_route web_routes[];

// The route of a request, with the operand set. Null with the reason to refuse it; *methods then are those that the path has.
const web_route *find_route(const std::string &method, const std::string &path, std::string *operand, web_refusal *why,
                            std::string *methods);

// web_login.cpp
void answer_session(web_request *asked, web_answer *answer);
void answer_login(web_request *asked, web_answer *answer);
void answer_logout(web_request *asked, web_answer *answer);
void answer_password(web_request *asked, web_answer *answer);
void answer_language(web_request *asked, web_answer *answer);
// web_accounts.cpp
void answer_accounts(web_request *asked, web_answer *answer);
void answer_put_account(web_request *asked, web_answer *answer);
void answer_delete_account(web_request *asked, web_answer *answer);
// web_history.cpp
void answer_now(web_request *asked, web_answer *answer);
void answer_timeline(web_request *asked, web_answer *answer);
void answer_use(web_request *asked, web_answer *answer);
void answer_alerts(web_request *asked, web_answer *answer);
void answer_gaps(web_request *asked, web_answer *answer);
void answer_export_csv(web_request *asked, web_answer *answer);
void answer_export_json(web_request *asked, web_answer *answer);
// web_household.cpp
void answer_status(web_request *asked, web_answer *answer);
void answer_devices(web_request *asked, web_answer *answer);
void answer_apps(web_request *asked, web_answer *answer);
void answer_changes(web_request *asked, web_answer *answer);
// web_technician.cpp
void answer_counters(web_request *asked, web_answer *answer);
void answer_metrics(web_request *asked, web_answer *answer);
void answer_health(web_request *asked, web_answer *answer);
// web_writes.cpp
void answer_put_device(web_request *asked, web_answer *answer);
void answer_delete_device(web_request *asked, web_answer *answer);
void answer_limits(web_request *asked, web_answer *answer);
void answer_put_limits(web_request *asked, web_answer *answer);
void answer_payments(web_request *asked, web_answer *answer);
void answer_put_payments(web_request *asked, web_answer *answer);
// web_events.cpp
void answer_events(web_request *asked, web_answer *answer);
// web_files.cpp: what no route names
void answer_file(web_request *asked, web_answer *answer);

#endif
