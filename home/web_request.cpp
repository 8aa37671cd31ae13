#include "home/web_request.h"

#include "home/web_state.h"

#include <microhttpd.h>

namespace {

struct refusal_about {
    const char *code;
    unsigned int status;
    const char *text;
};
#define REFUSAL_ABOUT(code, status, text) {#code, status, text},
constexpr refusal_about refusals[] = {WEB_REFUSALS(REFUSAL_ABOUT)};

std::string value_of_kind(const web_request &asked, MHD_ValueKind kind, const char *name)
{
    const char *value = MHD_lookup_connection_value(asked.connection, kind, name);
    return value ? value : "";
}

} // namespace

void refuse(web_answer *answer, web_refusal why)
{
    const refusal_about &about = refusals[why];
    json_tree body(cJSON_CreateObject());
    cJSON *error = cJSON_AddObjectToObject(body.get(), "error");
    add_text(error, "code", about.code);
    add_text(error, "text", about.text);
    answer_with(answer, body);
    answer->status = about.status;
    answer->refused = why;
}

void answer_with(web_answer *answer, const json_tree &body)
{
    heap_text text(cJSON_PrintUnformatted(body.get()));
    answer->text = text ? text.get() : "null";
}

std::string query_value(const web_request &asked, const char *name)
{
    return value_of_kind(asked, MHD_GET_ARGUMENT_KIND, name);
}

std::string header_value(const web_request &asked, const char *name)
{
    return value_of_kind(asked, MHD_HEADER_KIND, name);
}

bool body_text(const web_request &asked, const char *key, size_t most, const char *otherwise, std::string *out)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(asked.body.get(), key);
    const char *text = item ? cJSON_GetStringValue(item) : otherwise;
    if (text)
        *out = text;
    return text && out->size() <= most;
}

known_names names_for(const web_request &asked)
{
    known_names known = all_names(&asked.home->all.db, asked.home->apps);
    if (asked.who.kind != kind_child)
        return known;
    for (auto at = known.devices.begin(); at != known.devices.end();) {
        bool own = asked.who.person != 0 && at->second.person == asked.who.person;
        at = own ? std::next(at) : known.devices.erase(at);
    }
    return known;
}

const known_device *named_device(const web_request &asked, const known_names &known, web_answer *answer)
{
    for (const auto &entry : known.devices)
        if (entry.second.mac == asked.operand)
            return &entry.second;
    refuse(answer, refused_not_found);
    return nullptr;
}

void note_change(const web_request &asked, const std::string &device, const char *what, const std::string &before,
                 const std::string &after)
{
    add_change(&asked.home->all, {asked.time, asked.who.name, asked.address, device, what, before, after});
}
