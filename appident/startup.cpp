#include "appident/startup.h"

#include "appident/model/records.h"
#include "appident/tracking/device_registry.h"
#include "appident/tracking/tick.h"
#include "common/log.h"

#include <unistd.h>

namespace {

constexpr unsigned service_start_seconds = 20;

// Nobody waits for a thread's end, and none is detached: its id may be unset where another pthread_create stands in.
bool start_thread(void *(*body)(void *))
{
    pthread_t thread;
    return pthread_create(&thread, nullptr, body, nullptr) == 0;
}

} // namespace

int app_ident_init(void)
{
    INIT_LIST_HEAD(&device_apps_head);
    url_check_log(0, "[appident] app_ident_init ->  start sleep 20S");
    sleep(service_start_seconds);
    url_check_log(0, "[appident] app_ident_init ->   sleep 20S over");
    init_device_app_list();
    pthread_mutex_init(&device_apps_mtx, nullptr);
    if (!start_thread(app_ident_thread)) {
        url_check_log(0, "[appident] app_ident_init -> app_ident_thread error");
        return -1;
    }
    if (!start_thread(process_my_push_list_thread)) {
        url_check_log(0, "[appident] app_ident_init -> process_my_push_list_thread error");
        return -1;
    }
    return 0;
}

void *process_my_push_list_thread(void *)
{
    return nullptr;
}
