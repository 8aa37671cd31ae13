#include "tests/home/power_cut.h"

#include "tests/home/daemon_voice.h"

#include <sqlite3.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <map>

namespace {

std::map<std::string, std::string> synced; // contents by path
bool power = true;

struct shim_file {
    sqlite3_file base;
    char path[256];
    sqlite3_file *below() { return reinterpret_cast<sqlite3_file *>(this + 1); }
};

shim_file *shim(sqlite3_file *file)
{
    return reinterpret_cast<shim_file *>(file);
}

sqlite3_vfs *real_layer()
{
    static sqlite3_vfs *real = sqlite3_vfs_find(nullptr);
    return real;
}

std::string read_all(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

#define BELOW(file) shim(file)->below()->pMethods

int shim_close(sqlite3_file *file)
{
    return BELOW(file)->xClose(shim(file)->below());
}
int shim_read(sqlite3_file *file, void *to, int size, sqlite3_int64 at)
{
    return BELOW(file)->xRead(shim(file)->below(), to, size, at);
}
int shim_write(sqlite3_file *file, const void *from, int size, sqlite3_int64 at)
{
    return power ? BELOW(file)->xWrite(shim(file)->below(), from, size, at) : SQLITE_IOERR_WRITE;
}
int shim_truncate(sqlite3_file *file, sqlite3_int64 size)
{
    return power ? BELOW(file)->xTruncate(shim(file)->below(), size) : SQLITE_IOERR_TRUNCATE;
}
int shim_sync(sqlite3_file *file, int flags)
{
    if (!power)
        return SQLITE_IOERR_FSYNC;
    int code = BELOW(file)->xSync(shim(file)->below(), flags);
    synced[shim(file)->path] = read_all(shim(file)->path);
    return code;
}
int shim_size(sqlite3_file *file, sqlite3_int64 *size)
{
    return BELOW(file)->xFileSize(shim(file)->below(), size);
}
int shim_lock(sqlite3_file *file, int level)
{
    return BELOW(file)->xLock(shim(file)->below(), level);
}
int shim_unlock(sqlite3_file *file, int level)
{
    return BELOW(file)->xUnlock(shim(file)->below(), level);
}
int shim_reserved(sqlite3_file *file, int *out)
{
    return BELOW(file)->xCheckReservedLock(shim(file)->below(), out);
}
int shim_control(sqlite3_file *file, int what, void *argument)
{
    return BELOW(file)->xFileControl(shim(file)->below(), what, argument);
}
int shim_sector(sqlite3_file *file)
{
    return BELOW(file)->xSectorSize(shim(file)->below());
}
int shim_traits(sqlite3_file *file)
{
    return BELOW(file)->xDeviceCharacteristics(shim(file)->below());
}
int shim_map(sqlite3_file *file, int region, int size, int extend, void volatile **out)
{
    return BELOW(file)->xShmMap(shim(file)->below(), region, size, extend, out);
}
int shim_shm_lock(sqlite3_file *file, int offset, int count, int flags)
{
    return BELOW(file)->xShmLock(shim(file)->below(), offset, count, flags);
}
void shim_barrier(sqlite3_file *file)
{
    BELOW(file)->xShmBarrier(shim(file)->below());
}
int shim_unmap(sqlite3_file *file, int remove)
{
    return BELOW(file)->xShmUnmap(shim(file)->below(), remove);
}

const sqlite3_io_methods methods = {2,           shim_close, shim_read,     shim_write,    shim_truncate, shim_sync,
                                    shim_size,   shim_lock,  shim_unlock,   shim_reserved, shim_control,  shim_sector,
                                    shim_traits, shim_map,   shim_shm_lock, shim_barrier,  shim_unmap,    nullptr,
                                    nullptr};

int shim_open(sqlite3_vfs *, const char *name, sqlite3_file *file, int flags, int *out)
{
    shim_file *one = shim(file);
    one->base.pMethods = nullptr;
    snprintf(one->path, sizeof(one->path), "%s", name ? name : "");
    int code = real_layer()->xOpen(real_layer(), name, one->below(), flags, out);
    if (one->below()->pMethods)
        one->base.pMethods = &methods;
    return code;
}

int shim_delete(sqlite3_vfs *, const char *name, int sync)
{
    return power ? real_layer()->xDelete(real_layer(), name, sync) : SQLITE_IOERR_DELETE;
}

} // namespace

const char *register_power_cut_vfs()
{
    static sqlite3_vfs layer = *real_layer();
    layer.zName = "power_cut";
    layer.szOsFile += static_cast<int>(sizeof(shim_file));
    layer.xOpen = shim_open;
    layer.xDelete = shim_delete;
    layer.pNext = nullptr;
    sqlite3_vfs_register(&layer, 0);
    return layer.zName;
}

void cut_power(const std::string &)
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
