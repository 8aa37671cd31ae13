// The accounts, for parents.
#include "home/password.h"
#include "home/web_routes.h"
#include "home/web_state.h"

namespace {

constexpr size_t kind_most = 16, person_most = 63;

// Nobody could make accounts any more but with --password.
bool is_last_parent(database *db, const std::string &name)
{
    int parents = 0;
    bool is_parent = false;
    for (const account &one : list_accounts(db)) {
        parents += one.kind == kind_parent;
        is_parent = is_parent || (one.name == name && one.kind == kind_parent);
    }
    return is_parent && parents == 1;
}

// The account as the body wants it. web_refusal_end when that makes sense.
web_refusal read_account(const web_request &asked, account *wanted)
{
    std::string kind, person, password;
    database *db = &asked.home->all.db;
    bool known = find_account(db, asked.operand, wanted);
    bool has_password = cJSON_HasObjectItem(asked.body.get(), "password");
    if (!is_account_name(asked.operand) || !body_text(asked, "kind", kind_most, account_kind_name(wanted->kind), &kind) ||
        !body_text(asked, "person", person_most, "", &person) || !body_text(asked, "password", password_most, "", &password) ||
        !account_kind_of(kind) || (has_password ? password_fault(password) != nullptr : !known))
        return refused_bad_request;
    if (account_kind_of(kind) != kind_parent && is_last_parent(db, asked.operand))
        return refused_forbidden;
    if (has_password && !may_check_password(&asked.server->limits, uptime_ms()))
        return refused_too_many_requests;
    wanted->name = asked.operand;
    wanted->kind = account_kind_of(kind);
    if (cJSON_HasObjectItem(asked.body.get(), "person"))
        wanted->person = person_row(db, person);
    if (has_password)
        wanted->password = hash_password(password);
    return wanted->password.empty() ? refused_busy : web_refusal_end;
}

} // namespace

void answer_accounts(web_request *asked, web_answer *answer)
{
    json_tree body(cJSON_CreateObject());
    cJSON *list = cJSON_AddArrayToObject(body.get(), "accounts");
    for (const account &one : list_accounts(&asked->home->all.db)) {
        cJSON *item = add_item(list);
        add_text(item, "name", one.name);
        add_text(item, "kind", account_kind_name(one.kind));
        add_number(item, "person", one.person);
        add_text(item, "language", one.language);
    }
    answer_with(answer, body);
}

void answer_put_account(web_request *asked, web_answer *answer)
{
    account wanted;
    database *db = &asked->home->all.db;
    web_refusal why = read_account(*asked, &wanted);
    if (why == web_refusal_end && !store_account(db, wanted, asked->time))
        why = refused_busy;
    if (why != web_refusal_end)
        return refuse(answer, why);
    // Whoever had the old password must log in again.
    if (wanted.id && wanted.id != asked->who.id && cJSON_HasObjectItem(asked->body.get(), "password"))
        end_sessions(db, wanted.id, "");
    note_change(*asked, "", "account", "", wanted.name + ", " + account_kind_name(wanted.kind));
    answer_accounts(asked, answer);
}

void answer_delete_account(web_request *asked, web_answer *answer)
{
    database *db = &asked->home->all.db;
    if (is_last_parent(db, asked->operand))
        return refuse(answer, refused_forbidden);
    if (!delete_account(db, asked->operand))
        return refuse(answer, refused_not_found);
    note_change(*asked, "", "account", asked->operand, "");
    answer_accounts(asked, answer);
}
