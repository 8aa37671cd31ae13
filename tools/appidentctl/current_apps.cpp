#include "tools/appidentctl/current_apps.h"

#include "common/sec_plg_common.h"
#include "tools/appidentctl/daemon_call.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/json_file.h"

#include <algorithm>
#include <stdio.h>

namespace {

// An answer holds this many devices in full use with room to spare.
constexpr size_t devices_a_request = 8;

void take_apps(const std::string &mac, const cJSON *data, std::vector<current_app> *apps)
{
    const cJSON *app = nullptr;
    cJSON_ArrayForEach(app, data) {
        apps->push_back({mac, static_cast<u32>(json_number(app, "appid", 0)),
                         static_cast<time_t>(json_number(app, "starttime", 0)),
                         static_cast<u32>(json_number(app, "sumtime", 0))});
    }
}

} // namespace

int ask_current_apps(const places &where, const std::vector<std::string> &macs, bool first_minute,
                     std::vector<current_app> *apps)
{
    for (size_t begin = 0; begin < macs.size(); begin += devices_a_request) {
        json_tree list(cJSON_CreateObject());
        cJSON *array = cJSON_AddArrayToObject(list.get(), "device");
        for (size_t i = begin; i < std::min(macs.size(), begin + devices_a_request); i++)
            cJSON_AddItemToArray(array, cJSON_CreateString(macs[i].c_str()));
        heap_text text(cJSON_PrintUnformatted(list.get()));
        json_answer answer;
        int code = ask_for_json(where, first_minute ? APPIDENT_GET_CUR_DEVICES_APP_FOR_ROM : APPIDENT_GET_CUR_DEVICES_APP,
                                text.get(), &answer);
        if (code == exit_refused)
            fputs("appidentctl: the daemon refused\n", stderr);
        if (code != exit_done)
            return code;
        const cJSON *result = nullptr;
        cJSON_ArrayForEach(result, cJSON_GetObjectItem(answer.tree.get(), "results")) {
            take_apps(json_text(result, "device"), cJSON_GetObjectItem(result, "data"), apps);
        }
    }
    return exit_done;
}
