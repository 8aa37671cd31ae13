#include "tools/appidentctl/daemon_call.h"

#include "tools/appidentctl/daemon_page.h"
#include "tools/appidentctl/exit_codes.h"

#include <errno.h>
#include <grp.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The socket is there from the daemon's first moment, but nobody serves it yet: a request sent now would time out here and
// might still be carried out later.
bool wait_for_start(const places &where)
{
    constexpr int pause_ms = 100;
    for (int waited = 0;; waited += pause_ms) {
        counters page = read_counters(where.counters);
        if (state_of(page) != daemon_starting)
            return true;
        if (waited >= where.timeout_ms)
            break;
        usleep(pause_ms * 1000);
    }
    return false;
}

} // namespace

std::string how_to_join(gid_t id)
{
    const group *entry = getgrgid(id);
    if (!entry)
        return "be root";
    return std::string("be root, or a member of the group ") + entry->gr_name + ": 'usermod -aG " + entry->gr_name +
           " YOU', then log in again";
}

std::string why_unreachable(const places &where)
{
    counters page = read_counters(where.counters);
    daemon_state state = state_of(page);
    if (state == daemon_starting)
        return "the daemon is starting, " + std::to_string(seconds_to_start(page)) + " s to go; ask again then";
    struct stat status = {};
    if (stat(where.socket.c_str(), &status) != 0)
        return "no socket at " + where.socket + ": " + strerror(errno) + "; is the daemon running?";
    if (!S_ISSOCK(status.st_mode))
        return where.socket + " is not a socket; remove it and restart the daemon";
    if (access(where.socket.c_str(), R_OK | W_OK) != 0)
        return "no right to use " + where.socket + "; " + how_to_join(status.st_gid);
    if (state == daemon_gone)
        return "the daemon has ended (it was process " + std::to_string(page.owner) + "); start it again";
    return "nobody answers at " + where.socket + "; is the daemon running?";
}

int ask(const places &where, const client_request &request, client_answer *answer)
{
    if (!wait_for_start(where)) {
        fprintf(stderr, "appidentctl: %s\n", why_unreachable(where).c_str());
        return exit_unreachable;
    }
    switch (call_daemon(where.socket.c_str(), where.timeout_ms, request, answer)) {
    case request_done:
        return exit_done;
    case request_refused:
        return exit_refused;
    case request_malformed:
        fputs("appidentctl: the request is larger than the daemon takes\n", stderr);
        return exit_usage;
    case request_server_foreign:
        fprintf(stderr, "appidentctl: who listens at %s is neither root nor the daemon; nothing was sent\n",
                where.socket.c_str());
        return exit_unreachable;
    case request_timed_out:
        fprintf(stderr, "appidentctl: no answer within %g s; allow more with --timeout\n", where.timeout_ms / 1000.0);
        return exit_unreachable;
    case request_unreachable:
        break;
    }
    fprintf(stderr, "appidentctl: %s\n", why_unreachable(where).c_str());
    return exit_unreachable;
}

int ask_for_json(const places &where, unsigned int id, const std::string &device, json_answer *answer)
{
    client_request request = {};
    request.id = id;
    request.device = device.c_str();
    client_answer raw = {};
    int code = ask(where, request, &raw);
    if (code != exit_done || !raw.text)
        return code;
    answer->tree.reset(cJSON_Parse(raw.text.get()));
    if (!answer->tree) {
        fprintf(stderr, "appidentctl: an answer of %zu bytes is too long for one packet; ask about fewer devices\n",
                raw.full_length);
        return exit_usage;
    }
    answer->text = std::move(raw.text);
    return exit_done;
}
