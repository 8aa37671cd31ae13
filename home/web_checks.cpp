#include "home/web_checks.h"

#include "home/lan_address.h"
#include "home/secrets.h"
#include "home/web_routes.h"
#include "platform/linux/client/json_text.h"

#include <algorithm>
#include <ctype.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

namespace {

constexpr size_t body_values_most = 4096;

std::string lower_case(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

// An Origin check alone would not do: a foreign name can be made to lead here, and then is the page's own origin.
bool is_own_host(const web_server &server, const std::string &host)
{
    auto is_own = [&](const std::string &name) {
        return std::find(server.names.begin(), server.names.end(), name) != server.names.end();
    };
    size_t colon = host.rfind(':');
    bool has_port = colon != std::string::npos && host.find(']', colon) == std::string::npos;
    std::string name = has_port ? host.substr(0, colon) : host;
    bool own_port = !has_port || host.substr(colon + 1) == std::to_string(server.place.port);
    return is_own(host) || (own_port && is_own(name));
}

bool is_own_origin(const std::string &origin, const std::string &host)
{
    return origin == "http://" + host || origin == "https://" + host;
}

bool is_json(const std::string &type)
{
    std::string kind = lower_case(type.substr(0, type.find(';')));
    return kind.substr(0, kind.find_last_not_of(' ') + 1) == "application/json";
}

void find_who_asks(web_request *asked)
{
    std::string cookies = header_value(*asked, "Cookie"), wanted = std::string(session_cookie) + "=";
    for (size_t at = 0; at < cookies.size();) {
        size_t end = std::min(cookies.find(';', at), cookies.size());
        at = std::min(cookies.find_first_not_of(' ', at), end);
        if (cookies.compare(at, wanted.size(), wanted) == 0)
            asked->secret = cookies.substr(at + wanted.size(), end - at - wanted.size());
        at = end + 1;
    }
    if (asked->secret.empty())
        return;
    asked->session = digest_of(asked->secret);
    if (!find_login(&asked->home->all.db, asked->session, asked->time, &asked->who))
        asked->secret.clear();
}

// web_refusal_end when it may be answered.
web_refusal check_write(web_request *asked, const web_route &route)
{
    if (!is_own_origin(lower_case(header_value(*asked, "Origin")), lower_case(header_value(*asked, "Host"))))
        return refused_wrong_origin;
    // A form of another site can post, but not JSON.
    if (!is_json(header_value(*asked, "Content-Type")))
        return refused_wrong_type;
    if (route.needs_token && asked->who.id &&
        !same_secret(header_value(*asked, "X-Appident-Token"), write_token(asked->secret)))
        return refused_wrong_token;
    asked->body.reset(parse_json_text(asked->text.c_str(), json_text_limit, body_values_most));
    return cJSON_IsObject(asked->body.get()) ? web_refusal_end : refused_bad_request;
}

web_refusal check_route(web_request *asked, const web_route &route)
{
    find_who_asks(asked);
    web_refusal why = asked->method == "GET" ? web_refusal_end : check_write(asked, route);
    if (why != web_refusal_end || route.who == who_anybody)
        return why;
    if (!asked->who.id)
        return refused_not_logged_in;
    return route.who & asked->who.kind ? web_refusal_end : refused_forbidden;
}

} // namespace

void answer_request(web_request *asked, web_answer *answer)
{
    web_server *server = asked->server;
    if (!may_ask(&server->limits, asked->client, uptime_ms())) {
        answer->headers.push_back({"Retry-After", "1"});
        return refuse(answer, refused_too_many_requests);
    }
    if (!is_own_host(*server, lower_case(header_value(*asked, "Host"))))
        return refuse(answer, refused_wrong_host);
    web_refusal why = web_refusal_end;
    std::string methods;
    const web_route *route = find_route(asked->method, asked->path, &asked->operand, &why, &methods);
    if (!route && why == refused_not_found && asked->method == "GET" && asked->path.compare(0, 5, "/api/") != 0)
        return answer_file(asked, answer);
    if (route)
        why = check_route(asked, *route);
    if (!methods.empty())
        answer->headers.push_back({"Allow", methods});
    if (why != web_refusal_end)
        return refuse(answer, why);
    route->answer(asked, answer);
}

std::vector<std::string> own_names(const web_place &place, const web_settings &settings)
{
    std::vector<std::string> names = addresses_behind(place.address);
    for (std::string &name : names)
        if (name.find(':') != std::string::npos)
            name = "[" + name + "]";
    if (is_loopback(place.address) || is_any_address(place.address))
        names.push_back("localhost");
    char host[HOST_NAME_MAX + 1] = "";
    if (gethostname(host, sizeof(host) - 1) == 0 && *host)
        for (const char *end : {"", ".lan", ".local"})
            names.push_back(lower_case(host) + end);
    for (const std::string &more : settings.hosts)
        names.push_back(lower_case(more));
    return names;
}
