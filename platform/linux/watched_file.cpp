#include "platform/linux/watched_file.h"

#include "platform/linux/client/json_text.h"
#include "platform/linux/client/settings.h"

json_tree read_when_changed(watched_file *file)
{
    char path[state_path_size];
    state_path(path, file->name);
    struct stat now = {};
    if (stat(path, &now) != 0)
        now = {};
    if (file->looked && same_contents(now, file->seen))
        return nullptr;
    text_file contents = read_text_file(path, json_text_limit);
    // A file replaced or written to between the two looks is met again at the next call.
    file->looked = contents.outcome != file_read || same_contents(now, contents.about);
    file->seen = now;
    json_tree root(contents.text ? parse_json_text(contents.text.get()) : nullptr);
    if (cJSON_IsObject(root.get()))
        return root;
    count_platform(file->unreadable);
    return nullptr;
}
