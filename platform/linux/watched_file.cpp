#include "platform/linux/watched_file.h"

#include "platform/linux/client/json_text.h"

#include <utility>

file_news look_at_file(watched_file *file, const char *path, json_tree *root)
{
    struct stat now = {};
    if (stat(path, &now) != 0)
        now = {};
    if (file->looked && same_contents(now, file->seen))
        return file_unchanged;
    text_file contents = read_text_file(path, json_text_limit);
    // A file replaced or written to between the two looks is met again at the next call.
    file->looked = contents.outcome != file_read || same_contents(now, contents.about);
    file->seen = now;
    json_tree parsed(contents.text ? parse_json_text(contents.text.get()) : nullptr);
    if (cJSON_IsObject(parsed.get())) {
        file->met = true;
        *root = std::move(parsed);
        return file_fresh;
    }
    bool missing = contents.outcome == file_missing;
    if (!missing || file->met)
        count_platform(file->unreadable);
    return missing ? file_gone : file_useless;
}
