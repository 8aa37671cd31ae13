#include "appident/settings/config_file.h"

#include "appident/settings/json_fields.h"
#include "common/log.h"
#include "igd/igd_lib.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

bool make_config_path(const char *mac_str, config_path *path)
{
    memset(path->text, 0, sizeof(path->text));
    if (!mac_str || !*mac_str || strchr(mac_str, '/'))
        return false;
    if (get_config_path(path->text, sizeof(path->text) - 1) != 0)
        return false;
    size_t used = strnlen(path->text, sizeof(path->text) - 1);
    size_t left = sizeof(path->text) - used;
    int added = snprintf(path->text + used, left, "%s.config", mac_str);
    return added > 0 && static_cast<size_t>(added) < left;
}

namespace {

void log_config_path(const config_path &path)
{
    url_check_log(0, "[app_ident] load_config -> cfg_path: %s", path.text);
}

} // namespace

bool config_is_of(const cJSON *root, const char *mac_str)
{
    const cJSON *device = cJSON_GetObjectItem(root, "device");
    return cJSON_IsString(device) && strcmp(device->valuestring, mac_str) == 0;
}

namespace {

bool write_all(int fd, const char *text)
{
    size_t left = strlen(text);
    while (left > 0) {
        ssize_t done = write(fd, text, left);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            return false;
        text += done;
        left -= static_cast<size_t>(done);
    }
    return true;
}

bool write_flushed(const char *path, const char *text)
{
    remove(path); // what a kill left behind, or a fifo, which opening would wait for
    fd_guard file(open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    return file.get() >= 0 && write_all(file.get(), text) && fsync(file.get()) == 0 && close(file.release()) == 0;
}

// Makes a rename survive a power cut. A failure is not reported: the new text is in place, and only a power cut could bring
// back the old one.
void flush_directory_of(const char *path)
{
    config_path directory = {};
    const char *slash = strrchr(path, '/');
    size_t length = slash ? static_cast<size_t>(slash - path) + 1 : 0;
    if (length >= sizeof(directory.text))
        return;
    memcpy(directory.text, path, length);
    fd_guard opened(open(length > 0 ? directory.text : ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.get() >= 0)
        fsync(opened.get());
}

} // namespace

int write_config_file(const char *path, const char *text)
{
    // One name for all writers, of which the lock lets one work at a time: what a kill leaves behind is removed by the next
    // save.
    char beside[sizeof(config_path::text) + sizeof(".new")];
    int length = snprintf(beside, sizeof(beside), "%s.new", path);
    if (length < 0 || static_cast<size_t>(length) >= sizeof(beside))
        return -1;
    if (!write_flushed(beside, text) || rename(beside, path) != 0) {
        unlink(beside);
        return -1;
    }
    flush_directory_of(path);
    return 0;
}

int load_config(const char *mac_str, cJSON **config_root)
{
    if (!config_root)
        return -1;
    *config_root = nullptr;
    config_path path;
    if (!make_config_path(mac_str, &path))
        return -1;
    log_config_path(path);
    *config_root = json_load_file(path.text);
    return *config_root ? 0 : -1;
}

int replace_config(const char *mac_str, const char *config)
{
    config_path path;
    if (!config || !make_config_path(mac_str, &path) || write_config_file(path.text, config) != 0)
        return -1;
    save_param();
    return 0;
}

cJSON *stored_limit_of_class(const cJSON *limits, u32 wanted)
{
    cJSON *limit = nullptr;
    cJSON_ArrayForEach(limit, limits) {
        u32 class_type = 0;
        if (number_member(limit, "class_type", UINT32_MAX, &class_type) && class_type == wanted)
            return limit;
    }
    return nullptr;
}

namespace {

// A limit without a class replaces nothing.
constexpr u64 no_class = UINT64_MAX;

u64 class_of(const cJSON *limit)
{
    u32 class_type = 0;
    return number_member(limit, "class_type", UINT32_MAX, &class_type) ? class_type : no_class;
}

// A list of stored limits while others are merged into it. Their classes stand beside it: to look into each object for each new
// limit would hold the lock for seconds when a request has thousands.
struct stored_limits {
    cJSON *list;
    heap_ptr<u64> classes; // one for each limit, and space for the new ones
    int count;
};

bool read_classes(stored_limits &stored, int new_limits)
{
    size_t most = static_cast<size_t>(cJSON_GetArraySize(stored.list)) + static_cast<size_t>(new_limits);
    stored.classes.reset(static_cast<u64 *>(calloc(most, sizeof(u64))));
    if (!stored.classes)
        return false;
    const cJSON *limit = nullptr;
    cJSON_ArrayForEach(limit, stored.list)
        stored.classes.get()[stored.count++] = class_of(limit);
    return true;
}

// The limit goes to the end, in place of the first of its class. Only a reference is stored, so the new tree must outlive the
// stored one. False when there is no memory.
bool merge_limit(stored_limits &stored, cJSON *limit)
{
    // An empty list stays empty: it stands for a device whose limits were all taken away, and only a new file brings them back.
    if (stored.count == 0)
        return true;
    if (!cJSON_AddItemReferenceToArray(stored.list, limit))
        return false;
    u64 *classes = stored.classes.get();
    u64 added = class_of(limit);
    int place = 0;
    while (place < stored.count && (added == no_class || classes[place] != added))
        ++place;
    if (place < stored.count) {
        cJSON_DeleteItemFromArray(stored.list, place);
        --stored.count;
        memmove(classes + place, classes + place + 1, static_cast<size_t>(stored.count - place) * sizeof(u64));
    }
    classes[stored.count++] = added;
    return true;
}

// Merges all new limits into the stored tree. False when there is no memory.
bool merge_limits(cJSON *root, const cJSON *new_limits)
{
    stored_limits stored = {array_member(root, "data"), nullptr, 0};
    cJSON *first = new_limits->child;
    if (!stored.list) {
        url_check_log(0, "[app_ident] update_config -> error 4, add------->data");
        // All of them at once, as a copy: those after the first are then merged into it as into any list.
        stored.list = cJSON_Duplicate(new_limits, true);
        if (!put_member(root, "data", stored.list))
            return false;
        first = first->next;
    }
    if (!read_classes(stored, cJSON_GetArraySize(new_limits)))
        return false;
    for (cJSON *limit = first; limit; limit = limit->next) {
        if (!merge_limit(stored, limit))
            return false;
    }
    return true;
}

// A line for each limit, and a path before each, as if each had been written by itself: technicians and tools look for them.
void log_merged(const char *mac_str, int limits)
{
    config_path path;
    for (int i = 0; i < limits; ++i) {
        if (i > 0 && make_config_path(mac_str, &path))
            log_config_path(path);
        url_check_log(0, "[app_ident] update_config %s -> ok!", mac_str);
    }
}

int store_merged(const char *mac_str, const char *path, const cJSON *new_limits)
{
    cJSON *loaded = nullptr;
    if (load_config(mac_str, &loaded) != 0) {
        url_check_log(0, "[app_ident] update_config -> load_config  error");
        return -1;
    }
    json_tree root(loaded);
    if (!config_is_of(root.get(), mac_str)) {
        url_check_log(0, "[app_ident] update_config -> error 3");
        return -1;
    }
    if (!merge_limits(root.get(), new_limits))
        return -1;
    heap_text text(cJSON_PrintUnformatted(root.get()));
    if (!text)
        return -1;
    // One write for all of them: a kill leaves the old classes or the new ones, never some of each.
    if (write_config_file(path, text.get()) != 0) {
        url_check_log(0, "[app_ident] update_config -> fopen error");
        return -1;
    }
    log_merged(mac_str, cJSON_GetArraySize(new_limits));
    return 0;
}

} // namespace

int update_config(const char *mac_str, const char *config, const char *path)
{
    if (!mac_str || !config || !path)
        return -1;
    json_tree wanted(json_load_buffer(config));
    if (!wanted) {
        url_check_log(0, "[app_ident] update_config -> new_config_root error");
        return -1;
    }
    if (!config_is_of(wanted.get(), mac_str)) {
        url_check_log(0, "[app_ident] update_config -> new_jitem: cJSON_GetObjectItem error");
        return -1;
    }
    cJSON *limits = array_member(wanted.get(), "data");
    if (!limits) {
        url_check_log(0, "[app_ident] update_config -> pnew_data_array error");
        return -1;
    }
    int num = cJSON_GetArraySize(limits);
    if (num < 1) {
        url_check_log(0, "[app_ident] update_config -> new_num[%d] error", num);
        return -1;
    }
    return store_merged(mac_str, path, limits);
}
