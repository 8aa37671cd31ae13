#include "tests/home/power_cut.h"

#include "tests/home/daemon_voice.h"
#include "tests/kit/waiting.h"

#include <sqlite3.h>
#include <unistd.h>

#include <map>

namespace {

// An open file: the real layer's methods, and ours in their place.
struct opened {
    const sqlite3_io_methods *real;
    sqlite3_io_methods ours;
    std::string path;
};
std::map<sqlite3_file *, opened> files;
std::map<std::string, std::string> synced; // contents by path
bool power = true;

sqlite3_vfs *real_layer()
{
    static sqlite3_vfs *real = sqlite3_vfs_find(nullptr);
    return real;
}

int write_part(sqlite3_file *file, const void *from, int size, sqlite3_int64 at)
{
    return power ? files[file].real->xWrite(file, from, size, at) : SQLITE_IOERR_WRITE;
}

int cut_short(sqlite3_file *file, sqlite3_int64 size)
{
    return power ? files[file].real->xTruncate(file, size) : SQLITE_IOERR_TRUNCATE;
}

int sync_file(sqlite3_file *file, int flags)
{
    if (!power)
        return SQLITE_IOERR_FSYNC;
    int code = files[file].real->xSync(file, flags);
    synced[files[file].path] = text_of(files[file].path);
    return code;
}

int open_file(sqlite3_vfs *, const char *name, sqlite3_file *file, int flags, int *out)
{
    int code = real_layer()->xOpen(real_layer(), name, file, flags, out);
    if (!file->pMethods)
        return code;
    opened &one = files[file] = {file->pMethods, *file->pMethods, name ? name : ""};
    one.ours.xWrite = write_part;
    one.ours.xTruncate = cut_short;
    one.ours.xSync = sync_file;
    file->pMethods = &one.ours;
    return code;
}

int delete_file(sqlite3_vfs *, const char *name, int sync)
{
    return power ? real_layer()->xDelete(real_layer(), name, sync) : SQLITE_IOERR_DELETE;
}

} // namespace

const char *register_power_cut_vfs()
{
    static sqlite3_vfs layer = *real_layer();
    layer.zName = "power_cut";
    layer.xOpen = open_file;
    layer.xDelete = delete_file;
    layer.pNext = nullptr;
    sqlite3_vfs_register(&layer, 0);
    return layer.zName;
}

void cut_power()
{
    power = false;
}

void restore_power(const std::string &path)
{
    for (const char *end : {"", "-wal"}) {
        auto held = synced.find(path + end);
        if (held != synced.end())
            write_file(path + end, held->second);
        else
            unlink((path + end).c_str());
    }
    unlink((path + "-shm").c_str());
    power = true;
}
