#include "appident/requests/requests.h"

#include "appident/requests/current_apps.h"
#include "appident/requests/settings_requests.h"
#include "common/counters.h"
#include "common/sec_plg_common.h"

#include <stdint.h>

namespace {

using handler = int (*)(void *pa, void *pb, void *pc);

// pa: result or settings text, pb: MAC text or device list, pc: pointer to the text's capacity or length.
template <int (*serve)(const char *, char *, unsigned int *)> int text_request(void *pa, void *pb, void *pc)
{
    return serve(static_cast<const char *>(pb), static_cast<char *>(pa), static_cast<unsigned int *>(pc));
}

// pa: the switches, pb: a number, not an address.
template <int (*serve)(appident_payment_notify_st *, unsigned int)> int switch_request(void *pa, void *pb, void *)
{
    return serve(static_cast<appident_payment_notify_st *>(pa), static_cast<unsigned int>(reinterpret_cast<uintptr_t>(pb)));
}

struct request_entry {
    unsigned int id;
    handler serve;
};

constexpr request_entry entries[] = {
    {APPIDENT_GET_CUR_DEVICE_APP, text_request<get_cur_device_time_axis_app_json>},
    {APPIDENT_GET_CUR_DEVICE_APP_FOR_ROM, text_request<get_cur_device_time_axis_app_for_rom_json>},
    {APPIDENT_GET_CUR_DEVICES_APP, text_request<get_cur_devices_time_axis_app_json>},
    {APPIDENT_GET_CUR_DEVICES_APP_FOR_ROM, text_request<get_cur_devices_time_axis_app_for_rom_json>},
    {APPIDENT_SET_DEVICE_APP_LIST_USE_TIME, text_request<set_device_app_list_use_time>},
    {APPIDENT_GET_DEVICE_APP_LIST_USE_TIME, text_request<get_device_app_list_use_time_json>},
    {APPIDENT_SET_PAYMENT_CONFIG, switch_request<set_payment_config>},
    {APPIDENT_GET_PAYMENT_CONFIG, switch_request<get_payment_config>},
};

handler handler_of(unsigned int id)
{
    for (const request_entry &entry : entries) {
        if (entry.id == id)
            return entry.serve;
    }
    return nullptr;
}

} // namespace

int cgi_event_handler(unsigned int msg_id, void *pa, void *pb, void *pc)
{
    handler serve = handler_of(msg_id);
    if (!serve || serve(pa, pb, pc) != 0) {
        count(counter_requests_refused);
        return -1;
    }
    count(counter_requests);
    return 0;
}
