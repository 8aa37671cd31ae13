#include "tools/appidentctl/places.h"

#include "common/counters.h"
#include "common/log.h"
#include "feed/feed_counters.h"
#include "platform/linux/client/settings.h"
#include "tools/appidentctl/exit_codes.h"

#include <stdlib.h>

namespace {

constexpr const char *default_socket = "/tmp/.appident.ipc";
constexpr const char *default_log = "/tmp/appident.log";
constexpr int default_timeout_ms = 3000;

std::string option_or(const command_line &line, option_id id, const char *otherwise)
{
    return line.value[id] ? line.value[id] : otherwise;
}

} // namespace

bool find_places(const command_line &line, places *found)
{
    found->timeout_ms = default_timeout_ms;
    if (line.value[option_timeout] && !read_seconds(line.value[option_timeout], &found->timeout_ms)) {
        usage_error(line, "--timeout %s: wants seconds, up to 3600", line.value[option_timeout]);
        return false;
    }
    if (line.value[option_settings])
        setenv(settings_path_variable, line.value[option_settings], 1);
    const char *named = getenv(settings_path_variable);
    found->settings = named ? named : settings_default_path;
    found->socket = option_or(line, option_socket, default_socket);
    found->counters = option_or(line, option_counters, counters_path);
    found->feed_counters = option_or(line, option_feed_counters, feed_counters_path);
    found->log = option_or(line, option_log, default_log);

    const platform_settings &stored = settings();
    std::string state = std::string(stored.state_dir) + "/";
    std::string runtime = std::string(stored.runtime_dir) + "/";
    found->settings_valid = !stored.unreadable;
    found->lan_interface = stored.lan_interface;
    found->state_dir = stored.state_dir;
    found->roster = state + "roster.json";
    found->installed_catalogue = stored.catalogue;
    found->catalogue = state + "catalogue.json";
    found->platform_counters = runtime + "platform.counters";
    found->push_spools = {runtime + "pushes.jsonl.1", runtime + "pushes.jsonl"};
    found->push_socket = runtime + "pushes.sock";
    return true;
}
