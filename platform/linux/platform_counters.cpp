#include "platform/linux/platform_counters.h"

#include "platform/linux/client/settings.h"
#include "platform/linux/directories.h"
#include "platform/linux/socket_group.h"
#include "platform/linux/worker.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr const char *names[] = {PLATFORM_COUNTERS(COUNTER_NAME)};
constexpr timespec between_copies = {0, 250 * 1000 * 1000};

std::atomic<u32> values[platform_counter_end];
counter_page page = {names, values, platform_counter_end, -1};
pthread_once_t made_once = PTHREAD_ONCE_INIT;
// Set by the first count after a copy, which also wakes the worker; the others until the next copy cost no call.
std::atomic<bool> changed{false};
int wake_fd = -1;

void *copy_changes(void *)
{
    for (;;) {
        eventfd_t woken;
        eventfd_read(wake_fd, &woken);
        changed = false;
        counter_page_write(page);
        nanosleep(&between_copies, nullptr);
    }
}

void make_page()
{
    char path[state_path_size];
    runtime_path(path, "platform.counters");
    make_directory(settings().runtime_dir, 0755);
    if (settings().unreadable)
        ++values[platform_settings_unreadable];
    page.fd = counter_page_create(path, page);
    if (page.fd >= 0)
        give_to_socket_group(page.fd);
    wake_fd = page.fd >= 0 ? eventfd(0, EFD_CLOEXEC) : -1;
    if (wake_fd >= 0 && !start_worker(copy_changes))
        wake_fd = -1;
}

} // namespace

void platform_counters_start()
{
    pthread_once(&made_once, make_page);
}

void count_platform(platform_counter which, u32 by)
{
    platform_counters_start();
    values[which] += by;
    if (!changed && !changed.exchange(true) && wake_fd >= 0)
        eventfd_write(wake_fd, 1);
}
