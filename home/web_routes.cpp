#include "home/web_routes.h"

#include <string.h>

// clang-format off
const web_route web_routes[] = {
    {"GET",    "/api/v1/session",     who_anybody, false, answer_session},
    {"POST",   "/api/v1/login",       who_anybody, false, answer_login},
    {"POST",   "/api/v1/logout",      who_all,     true,  answer_logout},
    {"POST",   "/api/v1/password",    who_all,     true,  answer_password},
    {"PUT",    "/api/v1/language",    who_all,     true,  answer_language},
    {"GET",    "/api/v1/status",      who_all,     false, answer_status},
    {"GET",    "/api/v1/devices",     who_all,     false, answer_devices},
    {"PUT",    "/api/v1/devices/*",   kind_parent, true,  answer_put_device},
    {"DELETE", "/api/v1/devices/*",   kind_parent, true,  answer_delete_device},
    {"GET",    "/api/v1/now",         who_all,     false, answer_now},
    {"GET",    "/api/v1/timeline",    who_all,     false, answer_timeline},
    {"GET",    "/api/v1/use",         who_all,     false, answer_use},
    {"GET",    "/api/v1/alerts",      who_all,     false, answer_alerts},
    {"GET",    "/api/v1/limits/*",    who_all,     false, answer_limits},
    {"PUT",    "/api/v1/limits/*",    kind_parent, true,  answer_put_limits},
    {"GET",    "/api/v1/payments/*",  who_all,     false, answer_payments},
    {"PUT",    "/api/v1/payments/*",  kind_parent, true,  answer_put_payments},
    {"GET",    "/api/v1/apps",        who_all,     false, answer_apps},
    {"GET",    "/api/v1/gaps",        who_all,     false, answer_gaps},
    {"GET",    "/api/v1/export.csv",  who_all,     false, answer_export_csv},
    {"GET",    "/api/v1/export.json", who_all,     false, answer_export_json},
    {"GET",    "/api/v1/changes",     who_adults,  false, answer_changes},
    {"GET",    "/api/v1/counters",    who_adults,  false, answer_counters},
    {"GET",    "/api/v1/accounts",    kind_parent, false, answer_accounts},
    {"PUT",    "/api/v1/accounts/*",  kind_parent, true,  answer_put_account},
    {"DELETE", "/api/v1/accounts/*",  kind_parent, true,  answer_delete_account},
    {"GET",    "/api/v1/events",      who_all,     false, answer_events},
    {"GET",    "/metrics",            who_anybody, false, answer_metrics},
    {"GET",    "/healthz",            who_anybody, false, answer_health},
    {nullptr, nullptr, 0, false, nullptr},
};
// clang-format on

namespace {

// Whether the path is that of the route; the operand is the piece that stands for "*".
bool is_path(const char *route, const std::string &path, std::string *operand)
{
    const char *star = strchr(route, '*');
    if (!star)
        return path == route;
    size_t before = static_cast<size_t>(star - route);
    if (path.size() <= before || path.compare(0, before, route, before) != 0 || path.find('/', before) != std::string::npos)
        return false;
    *operand = path.substr(before);
    return true;
}

} // namespace

const web_route *find_route(const std::string &method, const std::string &path, std::string *operand, web_refusal *why,
                            std::string *methods)
{
    methods->clear();
    for (const web_route *route = web_routes; route->method; ++route) {
        if (!is_path(route->path, path, operand))
            continue;
        if (method == route->method) {
            methods->clear();
            return route;
        }
        *methods += (methods->empty() ? "" : ", ") + std::string(route->method);
    }
    *why = methods->empty() ? refused_not_found : refused_wrong_method;
    return nullptr;
}
