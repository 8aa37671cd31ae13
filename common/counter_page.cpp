#include "common/counter_page.h"

#include "common/guards.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

namespace {

constexpr u32 most_counters = 256;

struct stored_page {
    counter_page_header header;
    counter_slot slots[most_counters];
};

size_t page_size(u32 count)
{
    return sizeof(counter_page_header) + count * sizeof(counter_slot);
}

bool write_page(int fd, const counter_page &page)
{
    stored_page stored = {};
    stored.header = {counter_page_magic, counter_page_version, page.count, static_cast<u32>(getpid())};
    for (u32 i = 0; i < page.count && i < most_counters; ++i) {
        snprintf(stored.slots[i].name, sizeof(stored.slots[i].name), "%s", page.names[i]);
        stored.slots[i].value = page.values[i].load(std::memory_order_relaxed);
    }
    size_t size = page_size(page.count);
    return pwrite(fd, &stored, size, 0) == static_cast<ssize_t>(size);
}

} // namespace

int counter_page_create(const char *path, const counter_page &page)
{
    // Everybody may be allowed to write in the directory: the file is made beside, and replaces a link or a file that another
    // user made there, which is never written to.
    char beside[256];
    int length = snprintf(beside, sizeof(beside), "%s.XXXXXX", path);
    if (page.count > most_counters || length < 0 || static_cast<size_t>(length) >= sizeof(beside))
        return -1;
    fd_guard fd(mkostemp(beside, O_CLOEXEC));
    if (fd.get() < 0)
        return -1;
    if (!write_page(fd.get(), page) || fchmod(fd.get(), 0640) != 0 || rename(beside, path) != 0) {
        unlink(beside);
        return -1;
    }
    return fd.release();
}

void counter_page_write(const counter_page &page)
{
    // What cannot be written now, on a full disk perhaps, is written the next time.
    if (page.fd >= 0)
        write_page(page.fd, page);
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
        memcpy(out[filled].name, page->slots[i].name, sizeof(counter_slot::name));
        out[filled].name[sizeof(out[filled].name) - 1] = 0;
        out[filled].value = page->slots[i].value;
    }
    return filled;
}
