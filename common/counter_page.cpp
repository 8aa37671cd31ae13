#include "common/counter_page.h"

#include "common/guards.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace {

constexpr u32 most_counters = 256;

// A slot as the file holds it.
struct stored_slot {
    char name[sizeof(counter_slot::name)];
    u32 value;
};
static_assert(sizeof(stored_slot) == sizeof(counter_slot), "a counter on file is 32 bytes");

struct stored_page {
    counter_page_header header;
    stored_slot slots[most_counters];
};

size_t page_size(u32 count)
{
    return sizeof(counter_page_header) + count * sizeof(stored_slot);
}

} // namespace

counter_slot *counter_page_create(const char *path, const char *const *names, u32 count)
{
    heap_ptr<stored_page> page(static_cast<stored_page *>(calloc(1, sizeof(stored_page))));
    if (!page || count > most_counters)
        return nullptr;
    page->header = {counter_page_magic, counter_page_version, count, static_cast<u32>(getpid())};
    for (u32 i = 0; i < count; ++i)
        snprintf(page->slots[i].name, sizeof(page->slots[i].name), "%s", names[i]);
    // Everybody may be allowed to write in the directory: a link or a file that another user made there must never be written
    // to.
    unlink(path);
    fd_guard fd(open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (fd.get() < 0)
        return nullptr;
    // Every byte is written now: a full disk fails here, and not with a signal at the first count.
    size_t size = page_size(count);
    void *mapped = MAP_FAILED;
    if (write(fd.get(), page.get(), size) == static_cast<ssize_t>(size) && fchmod(fd.get(), 0644) == 0)
        mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    if (mapped == MAP_FAILED) {
        unlink(path);
        return nullptr;
    }
    return reinterpret_cast<counter_slot *>(static_cast<char *>(mapped) + sizeof(counter_page_header));
}

int counter_page_read(const char *path, counter_reading *out, int capacity, u32 *owner)
{
    fd_guard fd(open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    heap_ptr<stored_page> page(static_cast<stored_page *>(calloc(1, sizeof(stored_page))));
    if (fd.get() < 0 || !page)
        return -1;
    ssize_t got = read(fd.get(), page.get(), sizeof(stored_page));
    const counter_page_header &header = page->header;
    if (got < static_cast<ssize_t>(sizeof(header)) || header.magic != counter_page_magic ||
        header.version != counter_page_version || header.count > most_counters ||
        static_cast<size_t>(got) < page_size(header.count))
        return -1;
    if (owner)
        *owner = header.owner;
    int filled = 0;
    for (u32 i = 0; i < header.count && filled < capacity; ++i, ++filled) {
        memcpy(out[filled].name, page->slots[i].name, sizeof(stored_slot::name));
        out[filled].name[sizeof(out[filled].name) - 1] = 0;
        out[filled].value = page->slots[i].value;
    }
    return filled;
}
