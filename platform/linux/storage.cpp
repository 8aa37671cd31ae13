// Where the daemon keeps its per-device files, and reading them.
#include "igd/igd_lib.h"

#include "common/guards.h"
#include "platform/linux/client/json_text.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/directories.h"

#include <fcntl.h>
#include <stdio.h>

namespace {

constexpr mode_t owner_only = 0700;

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
    return file.text ? parse_json_text(file.text.get()) : nullptr;
}

struct cJSON *json_load_buffer(const char *text)
{
    return parse_json_text(text);
}
