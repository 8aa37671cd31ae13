// pushes: what the daemon told the household, from the spool or as it happens.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/daemon_call.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/names.h"
#include "tools/appidentctl/table.h"
#include "tools/appidentctl/time_text.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

std::string minutes_text(double minutes)
{
    return std::to_string(static_cast<long>(minutes)) + " min";
}

std::string status_detail(const cJSON *data)
{
    int status = static_cast<int>(json_number(data, "app_status", -1));
    return status == 0 ? "ended" : status == 1 ? "begun" : "status " + std::to_string(status);
}

std::string history_detail(const cJSON *data)
{
    return minutes_text(json_number(data, "sumtime", 0) / 60) + ", " + json_text(data, "up_traffic") + " bytes up, " +
           json_text(data, "down_traffic") + " down";
}

std::string payment_detail(const cJSON *data)
{
    constexpr const char *services[] = {"of an unknown kind", "with Alipay", "with WeChat Pay", "with QQ Pay",
                                        "with Apple Pay"};
    double type = json_number(data, "paytype", 0);
    return std::string("paid ") + services[type >= 1 && type <= 4 ? static_cast<int>(type) : 0] + ", rules " +
           json_text(data, "ruleid");
}

std::string limit_detail(const cJSON *data)
{
    return "class " + json_text(data, "class_type") + " used for " + minutes_text(json_number(data, "use_time", 0)) + " today";
}

std::string eyes_detail(const cJSON *data)
{
    return minutes_text(json_number(data, "times", 0) / 60) + " without a break";
}

std::string first_use_detail(const cJSON *)
{
    return "in use";
}

std::string presence_detail(const cJSON *data)
{
    return json_text(data, "status") + ", " + minutes_text(json_number(data, "sumtime", 0));
}

struct push_kind {
    int code;
    const char *name;
    std::string (*detail)(const cJSON *data);
};
constexpr push_kind push_kinds[] = {
    {0, "status", status_detail},        {1008, "history", history_detail}, {1012, "payment", payment_detail},
    {1015, "limit", limit_detail},       {1021, "eyes", eyes_detail},       {1022, "first use", first_use_detail},
    {1023, "presence", presence_detail},
};

void print_push(const names &known, const cJSON *push, const cJSON *data)
{
    int code = static_cast<int>(json_number(push, "code", -1));
    const push_kind *kind = nullptr;
    for (const push_kind &one : push_kinds)
        if (one.code == code)
            kind = &one;
    std::string device = json_text(data, code ? "endmac" : "mac");
    double app = json_number(data, code ? "appid" : "app_id", 0);
    std::string subject = device_label(known, device) + (app > 0 ? "  " + app_label(known, static_cast<u32>(app)) : "");
    printf("%s  %4d %-9s  %s  %s\n", time_text(static_cast<time_t>(json_number(push, "time", 0))).c_str(), code,
           kind ? kind->name : "?", printable(subject).c_str(), printable(kind ? kind->detail(data) : "").c_str());
}

// One line of the spool or the stream; what does not parse is passed over.
void print_line(const call &what, const names &known, const std::string &line)
{
    if (given(what.line, option_json)) {
        puts(line.c_str());
        return;
    }
    json_tree push(cJSON_Parse(line.c_str()));
    const cJSON *data = cJSON_GetObjectItem(push.get(), "data");
    if (!cJSON_IsArray(data)) {
        if (data)
            print_push(known, push.get(), data);
        return;
    }
    const cJSON *one = nullptr;
    cJSON_ArrayForEach(one, data) {
        print_push(known, push.get(), one);
    }
}

// Prints the whole lines of what has come and leaves the rest.
void print_lines(const call &what, const names &known, std::string *text)
{
    size_t begin = 0;
    for (size_t end = 0; (end = text->find('\n', begin)) != std::string::npos; begin = end + 1)
        print_line(what, known, text->substr(begin, end - begin));
    text->erase(0, begin);
}

int print_spool(const call &what)
{
    std::string text;
    bool older = read_file(what.where.push_spool + ".1", &text);
    if (!read_file(what.where.push_spool, &text) && !older) {
        fprintf(stderr, "appidentctl: no spool at %s: %s\n", what.where.push_spool.c_str(), strerror(errno));
        return errno == ENOENT ? exit_done : exit_unreachable;
    }
    print_lines(what, read_names(what.where), &text);
    return exit_done;
}

int follow(const call &what)
{
    const std::string &path = what.where.push_socket;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s", path.c_str());
    fd_guard fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (path.size() >= sizeof(address.sun_path) ||
        connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        fprintf(stderr, "appidentctl: no pushes from %s: %s\n", path.c_str(), strerror(errno));
        return exit_unreachable;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    names known = read_names(what.where);
    std::string text;
    char piece[4096];
    for (ssize_t size = 0; (size = recv(fd.get(), piece, sizeof(piece), 0)) > 0;) {
        text.append(piece, static_cast<size_t>(size));
        print_lines(what, known, &text);
    }
    fputs("appidentctl: the daemon closed the stream of pushes: it ended, or turned us away, or we were too slow\n", stderr);
    return exit_unreachable;
}

} // namespace

int run_pushes(const call &what)
{
    return given(what.line, option_follow) ? follow(what) : print_spool(what);
}
