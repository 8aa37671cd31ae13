#include "platform/linux/client/settings.h"

#include "common/guards.h"
#include "platform/linux/client/json_text.h"

#include <grp.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr size_t settings_limit = 16 * 1024;
constexpr u32 spool_least = 4096;
constexpr u32 spool_most = 1u << 30;
constexpr u32 role_most = 2;
constexpr u32 minute = 60;
constexpr u32 offline_least = 1;
constexpr u32 offline_most = 24 * 60;

platform_settings current = {
    "auto", "/var/lib/appident", "/run/appident", false, 0, 1024 * 1024, APPIDENT_DATADIR "/catalogue.json", 0, 60 * minute, "",
    false};
pthread_once_t read_once = PTHREAD_ONCE_INIT;

template <size_t size> void take_text(const cJSON *root, const char *key, char (&out)[size])
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(root, key);
    if (cJSON_IsString(item) && *item->valuestring && strlen(item->valuestring) < size)
        snprintf(out, size, "%s", item->valuestring);
}

// The number, or what stands already.
u32 number_or(const cJSON *root, const char *key, u32 least, u32 most, u32 otherwise)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(root, key);
    bool fits = cJSON_IsNumber(item) && item->valuedouble >= least && item->valuedouble <= most;
    return fits ? static_cast<u32>(item->valuedouble) : otherwise;
}

void take_group(const cJSON *root)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(root, "socket_group");
    if (!cJSON_IsString(item))
        return;
    group found, *result = nullptr;
    char room[4096];
    if (getgrnam_r(item->valuestring, &found, room, sizeof(room), &result) != 0 || !result) {
        current.unreadable = true;
        return;
    }
    current.has_socket_group = true;
    current.socket_group = found.gr_gid;
}

void read_settings()
{
    const char *named = secure_getenv(settings_path_variable);
    text_file file = read_text_file(named ? named : settings_default_path, settings_limit);
    if (file.outcome == file_missing)
        return;
    json_tree root(file.text ? parse_json_text(file.text.get(), settings_limit) : nullptr);
    if (!cJSON_IsObject(root.get())) {
        current.unreadable = true;
        return;
    }
    take_text(root.get(), "lan_interface", current.lan_interface);
    take_text(root.get(), "state_dir", current.state_dir);
    take_text(root.get(), "runtime_dir", current.runtime_dir);
    take_text(root.get(), "catalogue", current.catalogue);
    take_text(root.get(), "leases", current.leases);
    take_group(root.get());
    current.spool_limit = number_or(root.get(), "spool_limit", spool_least, spool_most, current.spool_limit);
    current.default_role = static_cast<int>(number_or(root.get(), "default_role", 0, role_most, 0));
    current.offline_after =
        minute * number_or(root.get(), "offline_after", offline_least, offline_most, current.offline_after / minute);
}

} // namespace

const platform_settings &settings()
{
    pthread_once(&read_once, read_settings);
    return current;
}

namespace {

// A path that does not fit names nothing.
void join_path(char (&out)[state_path_size], const char *directory, const char *name)
{
    int length = snprintf(out, sizeof(out), "%s/%s", directory, name);
    if (length < 0 || length >= state_path_size)
        *out = '\0';
}

} // namespace

void state_path(char (&out)[state_path_size], const char *name)
{
    join_path(out, settings().state_dir, name);
}

void runtime_path(char (&out)[state_path_size], const char *name)
{
    join_path(out, settings().runtime_dir, name);
}
