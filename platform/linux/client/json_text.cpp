#include "platform/linux/client/json_text.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <utility>

namespace {

// Nested no deeper than the limit, and of no more values: each but the first stands behind a comma or an opening bracket.
bool within_bounds(const char *text, size_t values)
{
    int depth = 0;
    size_t count = 1;
    bool in_string = false;
    for (const char *at = text; *at; ++at) {
        if (in_string && *at == '\\' && at[1])
            ++at;
        else if (*at == '"')
            in_string = !in_string;
        else if (!in_string && (*at == '{' || *at == '['))
            ++depth;
        else if (!in_string && (*at == '}' || *at == ']'))
            --depth;
        if (!in_string && (*at == '{' || *at == '[' || *at == ','))
            ++count;
        if (depth > json_depth_limit || count > values)
            return false;
    }
    return true;
}

bool read_whole(int fd, char *text, size_t size)
{
    size_t filled = 0;
    while (filled < size) {
        ssize_t got = read(fd, text + filled, size - filled);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        filled += static_cast<size_t>(got);
    }
    text[size] = 0;
    return true;
}

} // namespace

bool same_contents(const struct stat &one, const struct stat &other)
{
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_size == other.st_size &&
           one.st_mtim.tv_sec == other.st_mtim.tv_sec && one.st_mtim.tv_nsec == other.st_mtim.tv_nsec;
}

text_file read_text_file(const char *path, size_t limit)
{
    text_file file = {file_refused, nullptr, {}};
    // Non-blocking: a pipe laid in the file's place must not stop the caller.
    fd_guard fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (fd.get() < 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            file.outcome = file_missing;
        return file;
    }
    if (fstat(fd.get(), &file.about) != 0 || !S_ISREG(file.about.st_mode) ||
        static_cast<unsigned long long>(file.about.st_size) > limit)
        return file;
    size_t size = static_cast<size_t>(file.about.st_size);
    heap_text text(static_cast<char *>(malloc(size + 1)));
    struct stat after;
    if (!text || !read_whole(fd.get(), text.get(), size) || fstat(fd.get(), &after) != 0 || !same_contents(file.about, after))
        return file;
    file.outcome = file_read;
    file.text = std::move(text);
    return file;
}

cJSON *parse_json_text(const char *text, size_t limit, size_t values, json_outcome *outcome)
{
    json_outcome unwanted;
    json_outcome &told = outcome ? *outcome : unwanted;
    told = json_refused;
    if (!text || strnlen(text, limit + 1) > limit || !within_bounds(text, values))
        return nullptr;
    // The parser does not say why it gave up, but an allocation that failed does.
    errno = 0;
    cJSON *tree = cJSON_Parse(text);
    told = tree ? json_read : errno == ENOMEM ? json_no_memory : json_refused;
    return tree;
}
