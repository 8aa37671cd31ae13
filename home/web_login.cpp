// The session, logging in and out, one's own password and language.
#include "home/password.h"
#include "home/web_checks.h"
#include "home/web_routes.h"

namespace {

constexpr size_t name_most = 32, person_most = 96, language_most = 16;

void answer_with_session(const web_request &asked, web_answer *answer)
{
    database *db = &asked.home->all.db;
    json_tree body(cJSON_CreateObject());
    cJSON_AddBoolToObject(body.get(), "first_run", number_of(db, 0, "SELECT count(*) FROM account") == 0);
    add_text(body.get(), "version", APPIDENT_VERSION);
    if (asked.who.id) {
        cJSON *who = cJSON_AddObjectToObject(body.get(), "account");
        add_text(who, "name", asked.who.name);
        add_text(who, "kind", account_kind_name(asked.who.kind));
        add_text(who, "language", asked.who.language);
        add_number(who, "person", asked.who.person);
    } else {
        cJSON_AddNullToObject(body.get(), "account");
    }
    add_text(body.get(), "token", asked.who.id ? write_token(asked.secret) : "");
    answer_with(answer, body);
}

void set_cookie(const web_request &asked, const std::string &secret, web_answer *answer)
{
    bool secure = !asked.server->settings.certificate.empty();
    answer->headers.push_back({"Set-Cookie", std::string(session_cookie) + "=" + secret +
                                                 "; Path=/; HttpOnly; SameSite=Strict" + (secure ? "; Secure" : "") +
                                                 (secret.empty() ? "; Max-Age=0" : "; Max-Age=31536000")});
}

// False, with the request refused, when this client may not have a password checked now.
bool may_try_password(const web_request &asked, web_answer *answer)
{
    client_limits *limits = &asked.server->limits;
    int64_t locked = locked_out_for(*limits, asked.client, uptime_ms());
    if (locked > 0) {
        answer->headers.push_back({"Retry-After", std::to_string(locked)});
        refuse(answer, refused_locked_out);
        return false;
    }
    if (may_check_password(limits, uptime_ms()))
        return true;
    answer->headers.push_back({"Retry-After", "1"});
    refuse(answer, refused_too_many_requests);
    return false;
}

} // namespace

void answer_session(web_request *asked, web_answer *answer)
{
    answer_with_session(*asked, answer);
}

void answer_login(web_request *asked, web_answer *answer)
{
    std::string name, password;
    database *db = &asked->home->all.db;
    if (!body_text(*asked, "name", name_most, nullptr, &name) ||
        !body_text(*asked, "password", password_most, nullptr, &password))
        return refuse(answer, refused_bad_request);
    if (!may_try_password(*asked, answer))
        return;
    account who;
    find_account(db, name, &who);
    bool right = check_password(password, who.password);
    note_password(&asked->server->limits, asked->client, right, uptime_ms());
    if (!right)
        return refuse(answer, refused_wrong_password);
    asked->secret = begin_session(db, who.id, asked->time);
    if (asked->secret.empty())
        return refuse(answer, refused_busy);
    asked->who = who;
    asked->server->counts[web_count_logins]++;
    set_cookie(*asked, asked->secret, answer);
    answer_with_session(*asked, answer);
}

void answer_logout(web_request *asked, web_answer *answer)
{
    end_session(&asked->home->all.db, asked->session);
    asked->who = {};
    set_cookie(*asked, "", answer);
    answer_with_session(*asked, answer);
}

void answer_password(web_request *asked, web_answer *answer)
{
    std::string old_one, new_one;
    database *db = &asked->home->all.db;
    if (!body_text(*asked, "old", password_most, nullptr, &old_one) ||
        !body_text(*asked, "new", password_most, nullptr, &new_one) || password_fault(new_one))
        return refuse(answer, refused_bad_request);
    if (!may_try_password(*asked, answer))
        return;
    bool right = check_password(old_one, asked->who.password);
    note_password(&asked->server->limits, asked->client, right, uptime_ms());
    if (!right)
        return refuse(answer, refused_wrong_password);
    asked->who.password = hash_password(new_one);
    if (asked->who.password.empty() || !store_account(db, asked->who, asked->time))
        return refuse(answer, refused_busy);
    end_sessions(db, asked->who.id, asked->session);
    note_change(*asked, "", "password", "", "");
    answer_with_session(*asked, answer);
}

void answer_language(web_request *asked, web_answer *answer)
{
    if (!body_text(*asked, "language", language_most, nullptr, &asked->who.language))
        return refuse(answer, refused_bad_request);
    if (!store_account(&asked->home->all.db, asked->who, asked->time))
        return refuse(answer, refused_busy);
    asked->home->all.db.commit_wanted = true;
    answer_with_session(*asked, answer);
}
