#include "platform/linux/directories.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

namespace {

constexpr mode_t parent_mode = 0755;

bool make_parents(const char *path)
{
    char part[256];
    if (snprintf(part, sizeof(part), "%s", path) >= static_cast<int>(sizeof(part)))
        return false;
    for (char *slash = strchr(part + 1, '/'); slash; slash = strchr(slash + 1, '/')) {
        *slash = 0;
        if (mkdir(part, parent_mode) != 0 && errno != EEXIST)
            return false;
        *slash = '/';
    }
    return true;
}

} // namespace

bool make_directory(const char *path, mode_t mode)
{
    // Nearly always there already, or with only the last part missing.
    if (mkdir(path, mode) == 0 || errno == EEXIST)
        return true;
    return errno == ENOENT && make_parents(path) && (mkdir(path, mode) == 0 || errno == EEXIST);
}
