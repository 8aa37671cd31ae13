// A webhook is a POST by the program curl, a command is the owner's. Both are run beside ours, one at a time each. curl as a
// library would add 4 MB to what is resident all day, for a few alerts.
#include "home/child_process.h"
#include "home/notices.h"
#include "home/serve.h"

#include <algorithm>
#include <ctype.h>
#include <iterator>
#include <random>
#include <stdio.h>
#include <time.h>

namespace {

constexpr int64_t second_ms = 1000;
constexpr int64_t curl_time_limit = 30; // seconds
// After 5 s, 10 s ... 10 min: for about an hour and a half.
constexpr int64_t longest_pause_ms = 600 * second_ms;
constexpr int webhook_tries = 15, command_tries = 1;
constexpr int64_t child_look_ms = 100, rest_ms = 60 * second_ms;
constexpr const char *path_setting = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

struct program_run {
    std::vector<std::string> arguments, environment;
    std::string input;
};

struct notice_runner {
    notice_way way;
    program_run (*make)(const notice_settings &settings, const cJSON *alert);
    int tries_most;
    int64_t time_limit;  // seconds
    int64_t retry_after; // seconds
    bool on = false;
    child_process child;
    int64_t alert = 0; // being told
    int tries = 0;
    int64_t next_ms = 0;
};

// A value between quotes in curl's configuration.
std::string quoted(const std::string &text)
{
    std::string out = "\"";
    for (char one : text) {
        if (one == '"' || one == '\\')
            out += '\\';
        out += one;
    }
    return out + "\"\n";
}

// Address, key and body go by standard input: the list of processes shows arguments to everybody.
program_run run_webhook(const notice_settings &settings, const cJSON *alert)
{
    const webhook_settings &hook = settings.webhook;
    heap_text body(cJSON_PrintUnformatted(alert));
    program_run run = {{"/usr/bin/curl", "--disable", "--silent", "--show-error", "--fail", "--globoff", "--config", "-"},
                       {path_setting},
                       // Sent on to another address, it would be told to nobody and count as told: that is a failure.
                       "location\nmax-redirs = 0\nproto = \"=http,https\"\nmax-time = " + std::to_string(curl_time_limit - 5) +
                           "\noutput = \"/dev/null\"\nheader = \"Content-Type: application/json\"\n"};
    if (!hook.authorization.empty())
        run.input += "header = " + quoted("Authorization: " + hook.authorization);
    if (!hook.ca.empty())
        run.input += "cacert = " + quoted(hook.ca);
    run.input += "data-raw = " + quoted(body ? body.get() : "") + "url = " + quoted(hook.url);
    return run;
}

// Each member of the alert as APPIDENT_KIND, APPIDENT_NAME ..., and the whole as JSON on standard input.
program_run run_command(const notice_settings &settings, const cJSON *alert)
{
    heap_text body(cJSON_PrintUnformatted(alert));
    program_run run = {settings.command.run, {path_setting}, std::string(body ? body.get() : "") + "\n"};
    const cJSON *member = nullptr;
    cJSON_ArrayForEach(member, alert) {
        std::string key = "APPIDENT_";
        for (const char *one = member->string; *one; ++one)
            key += static_cast<char>(toupper(static_cast<unsigned char>(*one)));
        heap_text number(cJSON_IsString(member) ? nullptr : cJSON_PrintUnformatted(member));
        run.environment.push_back(key + "=" + (number ? number.get() : member->valuestring));
    }
    return run;
}

// Some earlier, some later, so that the homes of a whole town do not come back together.
int64_t pause_after(int64_t first_s, int tries)
{
    static std::minstd_rand random(std::random_device{}());
    int64_t pause = std::min((first_s * second_ms) << std::min(tries - 1, 10), longest_pause_ms);
    return pause / 2 + static_cast<int64_t>(random()) % pause;
}

} // namespace

struct notices {
    household *home;
    notice_settings settings;
    notice_runner runners[2];
};

namespace {

void end_try(notice_runner *runner, bool succeeded, int64_t now_ms)
{
    if (succeeded || runner->tries >= runner->tries_most) {
        if (!succeeded)
            fprintf(stderr, "appident-home: the %s failed for an alert, after %d tries\n", runner->way.name, runner->tries);
        end_alert(&runner->way, runner->alert, succeeded ? &notice_counts::told : &notice_counts::failed);
        runner->tries = 0;
        runner->next_ms = now_ms;
        return;
    }
    runner->next_ms = now_ms + pause_after(runner->retry_after, runner->tries);
}

void start_try(notices *all, notice_runner *runner, int64_t now_ms)
{
    alert_row alert;
    int64_t now = time(nullptr);
    if (!next_alert(&runner->way, now, &alert)) {
        runner->next_ms = now_ms + rest_ms;
        return;
    }
    if (alert.id != runner->alert)
        runner->tries = 0;
    runner->alert = alert.id;
    ++runner->tries;
    json_tree facts = alert_json(all->home, alert, now);
    program_run run = runner->make(all->settings, facts.get());
    int64_t deadline = now_ms + runner->time_limit * second_ms;
    if (!start_child(&runner->child, run.arguments, run.environment, run.input, deadline))
        end_try(runner, false, now_ms);
}

size_t prepare(void *state, pollfd *, size_t, int64_t now_ms, int64_t *wake_ms)
{
    for (const notice_runner &runner : static_cast<notices *>(state)->runners)
        if (runner.on)
            *wake_ms = std::min(*wake_ms, runner.child.id < 0 ? runner.next_ms : now_ms + child_look_ms);
    return 0;
}

void serve(void *state, const pollfd *, size_t, int64_t now_ms)
{
    notices *all = static_cast<notices *>(state);
    for (notice_runner &runner : all->runners) {
        if (!runner.on)
            continue;
        child_state how = look_after_child(&runner.child, now_ms);
        if (how == child_succeeded || how == child_failed)
            end_try(&runner, how == child_succeeded, now_ms);
        if (runner.child.id < 0 && now_ms >= runner.next_ms)
            start_try(all, &runner, now_ms);
    }
}

// There is something to tell; what is being tried again keeps its pause.
void wake_up(void *context, const fact &)
{
    for (notice_runner &runner : static_cast<notices *>(context)->runners)
        if (runner.tries == 0)
            runner.next_ms = 0;
}

} // namespace

notices *begin_notices(household *home, const notice_settings &settings)
{
    notices *all = new notices{home, settings, {}};
    notice_runner *hook = &all->runners[0], *command = &all->runners[1];
    hook->on = all->settings.webhook.on;
    hook->make = run_webhook;
    hook->tries_most = webhook_tries;
    hook->time_limit = curl_time_limit;
    hook->retry_after = all->settings.webhook.retry_after;
    command->on = all->settings.command.on;
    command->make = run_command;
    command->tries_most = command_tries;
    command->time_limit = all->settings.command.time_limit;
    const notice_kinds *kinds[] = {&all->settings.webhook.kinds, &all->settings.command.kinds};
    const char *names[] = {"webhook", "command"};
    for (size_t i = 0; i < std::size(all->runners); ++i) {
        if (all->runners[i].on)
            begin_way(&all->runners[i].way, names[i], kinds[i], home);
        else
            forget_way(home, names[i]);
    }
    home->all.listeners.push_back({fact_bit(fact_alert), wake_up, all});
    return all;
}

void end_notices(notices *all)
{
    for (notice_runner &runner : all->runners)
        end_child(&runner.child);
    delete all;
}

loop_part notices_part(notices *all)
{
    return {prepare, serve, all};
}
