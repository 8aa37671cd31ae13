#include "bench/platform_calls.h"

#include "igd/igd_lib.h"

#include <atomic>

namespace {

std::atomic<unsigned> calls{0};

} // namespace

unsigned platform_calls()
{
    return calls;
}

// get_mac_by_ip is left alone: it is timed to the nanosecond, and the pass does not use it.
extern "C" {

int __real_call_cgi(const char *path, const char *query, char **answer);
int __wrap_call_cgi(const char *path, const char *query, char **answer)
{
    calls++;
    return __real_call_cgi(path, query, answer);
}

int __real_get_config_path(char *buf, int size);
int __wrap_get_config_path(char *buf, int size)
{
    calls++;
    return __real_get_config_path(buf, size);
}

struct cJSON *__real_json_load_file(const char *path);
struct cJSON *__wrap_json_load_file(const char *path)
{
    calls++;
    return __real_json_load_file(path);
}

int __real_nos_hostname_action(struct nos_hostname_cfg *cfg);
int __wrap_nos_hostname_action(struct nos_hostname_cfg *cfg)
{
    calls++;
    return __real_nos_hostname_action(cfg);
}

int __real_get_group_by_mac(const unsigned char *mac, int *homeid, int *forkid);
int __wrap_get_group_by_mac(const unsigned char *mac, int *homeid, int *forkid)
{
    calls++;
    return __real_get_group_by_mac(mac, homeid, forkid);
}

int __real_new_push_msg(int type, const char *data, unsigned long occur_time);
int __wrap_new_push_msg(int type, const char *data, unsigned long occur_time)
{
    calls++;
    return __real_new_push_msg(type, data, occur_time);
}

int __real_app_info_to_devpush(const struct app_info_sync_st *info, int count);
int __wrap_app_info_to_devpush(const struct app_info_sync_st *info, int count)
{
    calls++;
    return __real_app_info_to_devpush(info, count);
}

unsigned int __real_get_system_uptime(void);
unsigned int __wrap_get_system_uptime(void)
{
    calls++;
    return __real_get_system_uptime();
}
}
