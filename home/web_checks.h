// What a request must be before its handler sees it: not too many from one client, for one of our names, from our own page, by
// somebody who may.
#ifndef HOME_WEB_CHECKS_H
#define HOME_WEB_CHECKS_H

#include "home/web_state.h"

constexpr const char *session_cookie = "appident_session";

// Finds out who asks, checks, and has the route's handler answer, or refuses.
void answer_request(web_request *asked, web_answer *answer);

// The names and addresses that a Host may say, for a server at the place.
std::vector<std::string> own_names(const web_place &place, const web_settings &settings);

#endif
