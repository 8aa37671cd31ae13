// Where the daemon keeps its per-device files, and reading them.
#include "igd/igd_lib.h"

#include "common/guards.h"
#include "platform/linux/client/json_text.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/directories.h"
#include "platform/linux/platform_counters.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

namespace {

constexpr mode_t owner_only = 0700;

// What was read whole and makes no sense will not make any later either: its device could never be given settings again.
void put_bad_file_aside(const char *path)
{
    char aside[state_path_size + sizeof(".bad")];
    int length = snprintf(aside, sizeof(aside), "%s.bad", path);
    count_platform(platform_config_unreadable);
    bool moved = length > 0 && static_cast<size_t>(length) < sizeof(aside) && rename(path, aside) == 0;
    fprintf(stderr, "appident: %s is no JSON; %s\n", path,
            moved ? "it is kept beside as .bad, settings begin anew" : strerror(errno));
}

} // namespace

int get_config_path(char *buf, int size)
{
    char path[state_path_size];
    state_path(path, "config");
    if (!buf || size <= 0 || !make_directory(path, owner_only))
        return -1;
    return snprintf(buf, static_cast<size_t>(size), "%s/", path) < size ? 0 : -1;
}

// The daemon flushes what it writes; what is left to make permanent is the directory, which holds the renaming.
int save_param(void)
{
    char path[state_path_size];
    state_path(path, "config");
    fd_guard directory(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory.get() >= 0 && fsync(directory.get()) == 0 ? 0 : -1;
}

struct cJSON *json_load_file(const char *path)
{
    if (!path)
        return nullptr;
    text_file file = read_text_file(path, json_text_limit);
    json_outcome outcome = json_read;
    cJSON *tree = file.text ? parse_json_text(file.text.get(), json_text_limit, json_values_limit, &outcome) : nullptr;
    if (outcome == json_refused)
        put_bad_file_aside(path);
    return tree;
}

struct cJSON *json_load_buffer(const char *text)
{
    return parse_json_text(text);
}
