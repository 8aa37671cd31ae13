#include "platform/linux/push_outlet.h"

#include "common/guards.h"
#include "common/mac_text.h"
#include "igd/igd_lib.h"
#include "platform/linux/client/json_text.h"
#include "platform/linux/platform_counters.h"
#include "platform/linux/push_spool.h"
#include "platform/linux/push_subscribers.h"
#include "platform/linux/text_builder.h"
#include "platform/linux/worker.h"

#include <string.h>
#include <sys/eventfd.h>
#include <sys/random.h>
#include <utility>

namespace {

constexpr int device_status_code = 0;
constexpr size_t push_limit = 64 * 1024;
// A step back of the clock ends every session of a large household within one pass: three pushes a device and more.
constexpr u32 queue_most = 4096;
constexpr size_t queue_bytes_most = 1024 * 1024;
// Who is using what now is told again, and soon old; what has ended, was paid or passed a limit is told once. The former may
// take half of the queue, the rest is the latter's.
constexpr u32 share_of_passing_news = 2;
constexpr int presence_push_code = 1023;
constexpr int status_records_most = 256;
// Then new subscribers have their turn.
constexpr int lines_at_once = 64;

struct queued_push {
    queued_push *next;
    u64 seq;
    time_t time;
    int code;
    unsigned long occur_time;
    size_t length;
    char text[];
};

pthread_mutex_t start_lock = PTHREAD_MUTEX_INITIALIZER;
bool started = false;
int wake_fd = -1;
u64 run = 0; // of this start; written before the thread starts

pthread_mutex_t queue_lock = PTHREAD_MUTEX_INITIALIZER;
queued_push *first = nullptr;
queued_push **end = &first;
u32 queued = 0;
size_t queued_bytes = 0;
u64 last_seq = 0;

bool has_room_for(const queued_push &push)
{
    u32 share = push.code == presence_push_code || push.code == device_status_code ? share_of_passing_news : 1;
    return queued < queue_most / share && queued_bytes + push.length <= queue_bytes_most / share;
}

heap_ptr<queued_push> copy_push(int code, const char *text, size_t length, unsigned long occur_time)
{
    heap_ptr<queued_push> push(static_cast<queued_push *>(malloc(sizeof(queued_push) + length + 1)));
    if (!push)
        return push;
    *push = {nullptr, 0, time(nullptr), code, occur_time, length};
    memcpy(push->text, text, length);
    push->text[length] = 0;
    return push;
}

// Owned by the queue afterwards, or refused and freed. What is refused, or could not even be copied (null), has taken a number
// too: readers see what is missing.
bool enqueue(heap_ptr<queued_push> push)
{
    bool was_empty;
    {
        mutex_guard held(queue_lock);
        u64 seq = ++last_seq;
        if (!push || !has_room_for(*push))
            return false;
        push->seq = seq;
        was_empty = queued == 0;
        ++queued;
        queued_bytes += push->length;
        *end = push.get();
        end = &push.release()->next;
    }
    if (was_empty)
        eventfd_write(wake_fd, 1);
    return true;
}

heap_ptr<queued_push> dequeue()
{
    mutex_guard held(queue_lock);
    heap_ptr<queued_push> push(first);
    if (!push)
        return push;
    first = push->next;
    if (!first)
        end = &first;
    --queued;
    queued_bytes -= push->length;
    return push;
}

int hand_on(int code, const char *text, unsigned long occur_time)
{
    push_outlet_start();
    size_t length = strnlen(text, push_limit + 1);
    heap_ptr<queued_push> push(length <= push_limit && started ? copy_push(code, text, length, occur_time) : nullptr);
    if (!enqueue(std::move(push))) {
        count_platform(platform_pushes_dropped);
        return -1;
    }
    count_platform(platform_pushes_accepted);
    return 0;
}

// The push's own text stands in the line when it is JSON; printing it anew keeps the line one line.
heap_text line_of(const queued_push &push)
{
    json_tree data(parse_json_text(push.text, push_limit));
    if (!data)
        data.reset(cJSON_CreateString(push.text));
    heap_text printed(data ? cJSON_PrintUnformatted(data.get()) : nullptr);
    if (!printed)
        return nullptr;
    text_builder line = {};
    append_text(&line, "{\"run\":\"%016llx\",\"seq\":%llu,\"time\":%lld,\"code\":%d,\"occur_time\":%lu,\"data\":%s}\n",
                static_cast<unsigned long long>(run), static_cast<unsigned long long>(push.seq),
                static_cast<long long>(push.time), push.code, push.occur_time, printed.get());
    return take_text(&line);
}

void drain()
{
    for (int lines = 0; lines < lines_at_once; ++lines) {
        heap_ptr<queued_push> push = dequeue();
        if (!push)
            return;
        heap_text line = line_of(*push);
        if (!line) {
            count_platform(platform_pushes_dropped);
            continue;
        }
        size_t length = strlen(line.get());
        spool_line(line.get(), length);
        send_to_subscribers(line.get(), length);
    }
    eventfd_write(wake_fd, 1);
}

// Early in a boot the kernel may have no random bytes yet; waiting for them would hold up the daemon's start.
u64 draw_run()
{
    u64 drawn = 0;
    if (getrandom(&drawn, sizeof(drawn), GRND_NONBLOCK) == static_cast<ssize_t>(sizeof(drawn)))
        return drawn;
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<u64>(now.tv_sec) << 32 ^ static_cast<u64>(now.tv_nsec) ^ static_cast<u64>(getpid()) << 16;
}

void *serve_outlet(void *)
{
    for (;;) {
        wait_for_subscribers(wake_fd);
        eventfd_t woken;
        eventfd_read(wake_fd, &woken);
        drain();
    }
}

} // namespace

void push_outlet_start()
{
    mutex_guard held(start_lock);
    if (started)
        return;
    if (wake_fd < 0) {
        wake_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        run = draw_run();
        open_subscribers();
    }
    started = wake_fd >= 0 && start_worker(serve_outlet);
}

int new_push_msg(int type, const char *data, unsigned long occur_time)
{
    return data ? hand_on(type, data, occur_time) : -1;
}

int app_info_to_devpush(const struct app_info_sync_st *info, int count)
{
    if (!info || count < 1 || count > status_records_most)
        return -1;
    text_builder text = {};
    for (int i = 0; i < count; ++i) {
        char mac[mac_text_size];
        write_mac_text(info[i].mac, mac);
        append_text(&text, "%c{\"mac\":\"%s\",\"app_id\":%u,\"class_type\":%u,\"app_status\":%d,\"timestamp\":%lld}",
                    i == 0 ? '[' : ',', mac, info[i].app_id, info[i].class_type, info[i].app_status,
                    static_cast<long long>(info[i].timestamp));
    }
    append_text(&text, "]");
    heap_text records = take_text(&text);
    if (!records) {
        count_platform(platform_no_memory);
        return -1;
    }
    return hand_on(device_status_code, records.get(), 0);
}
