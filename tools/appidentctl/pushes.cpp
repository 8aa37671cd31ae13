// pushes: what the daemon told the household, from the spool or as it happens.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/daemon_call.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/household.h"
#include "tools/appidentctl/json_file.h"
#include "tools/appidentctl/spool.h"
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
    return std::string(class_name(static_cast<u32>(json_number(data, "class_type", 0)))) + " used for " +
           minutes_text(json_number(data, "use_time", 0)) + " today";
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

// Which pushes are wanted.
struct push_filter {
    bool all_codes;
    int code;
    std::string mac; // empty: of every device
};

const push_kind *kind_of(int code)
{
    for (const push_kind &one : push_kinds)
        if (one.code == code)
            return &one;
    return nullptr;
}

bool read_filter(const call &what, const household &known, push_filter *filter)
{
    *filter = {true, 0, ""};
    if (const char *words = what.line.value[option_device]) {
        filter->mac = device_from_words(what.line, known, words);
        if (filter->mac.empty())
            return false;
    }
    const char *words = what.line.value[option_code];
    if (!words)
        return true;
    for (const push_kind &one : push_kinds) {
        if (words == std::string(one.name) || words == std::to_string(one.code)) {
            filter->all_codes = false;
            filter->code = one.code;
            return true;
        }
    }
    usage_error(what.line, "--code %s: wants history, payment, limit, eyes, \"first use\", presence, status or their number",
                words);
    return false;
}

bool wanted(const push_filter &filter, const spool_push &push)
{
    return (filter.all_codes || filter.code == push.code) && (filter.mac.empty() || filter.mac == push.mac);
}

void print_push(const household &known, const spool_push &push)
{
    const push_kind *kind = kind_of(push.code);
    std::string subject = device_name(known, push.mac) + (push.app_id ? "  " + app_label(known, push.app_id) : "");
    printf("%s  %4d %-9s  %s  %s\n", time_text(push.time).c_str(), push.code, kind ? kind->name : "?",
           printable(subject).c_str(), printable(kind ? kind->detail(push.data) : "").c_str());
}

// JSON lines are printed as they stand.
void print_line(const call &what, const household &known, const push_filter &filter, const std::string &line)
{
    bool any = false;
    read_push_line(line, [&](const spool_push &push) {
        if (!wanted(filter, push))
            return;
        if (given(what.line, option_json))
            any = true;
        else
            print_push(known, push);
    });
    if (any)
        puts(line.c_str());
}

int print_spool(const call &what, const household &known, const push_filter &filter)
{
    if (read_spool(what.where, [&](const std::string &line) { print_line(what, known, filter, line); }))
        return exit_done;
    fprintf(stderr, "appidentctl: no spool at %s: %s\n", what.where.push_spools.back().c_str(), strerror(errno));
    return errno == ENOENT ? exit_done : exit_unreachable;
}

int follow(const call &what, const household &known, const push_filter &filter)
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
    std::string text;
    char piece[4096];
    for (ssize_t size = 0; (size = recv(fd.get(), piece, sizeof(piece), 0)) > 0;) {
        text.append(piece, static_cast<size_t>(size));
        size_t begin = 0;
        for (size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
            print_line(what, known, filter, text.substr(begin, end - begin));
        text.erase(0, begin);
    }
    fputs("appidentctl: the daemon closed the stream of pushes: it ended, or turned us away, or we were too slow\n", stderr);
    return exit_unreachable;
}

} // namespace

int run_pushes(const call &what)
{
    household known = read_household(what.where);
    push_filter filter;
    if (!read_filter(what, known, &filter))
        return exit_usage;
    return given(what.line, option_follow) ? follow(what, known, filter) : print_spool(what, known, filter);
}
