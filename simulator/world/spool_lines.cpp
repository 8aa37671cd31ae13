#include "simulator/world/spool_lines.h"

std::string presence_entry(const char *status, const std::string &mac, u32 app, int64_t start, int64_t minutes, int64_t end)
{
    return "{\"endmac\":\"" + mac + "\",\"role\":\"1\",\"appid\":\"" + std::to_string(app) + "\",\"starttime\":\"" +
           std::to_string(start) + "\",\"endtime\":\"" + std::to_string(end) + "\",\"sumtime\":\"" + std::to_string(minutes) +
           "\",\"status\":\"" + status + "\",\"folk_id\":\"-1\"}";
}

std::string history_entry(const std::string &mac, const std::string &alias, u32 app, int64_t minutes)
{
    return "{\"endmac\":\"" + mac + "\",\"alias\":\"" + alias + "\",\"appid\":\"" + std::to_string(app) + "\",\"sumtime\":\"" +
           std::to_string(minutes * 60) + "\",\"up_traffic\":\"" + std::to_string(minutes * 10) + "\",\"down_traffic\":\"" +
           std::to_string(minutes * 1000) + "\",\"ruleid\":\"1,2\",\"folk_id\":\"-1\"}";
}

void daemon_voice::say(int code, const std::string &data, int64_t occur_time)
{
    ++seq;
    std::string head = numbered ? "\"run\":\"" + run + "\",\"seq\":" + std::to_string(seq) + "," : "";
    text += "{" + head + "\"time\":" + std::to_string(time) + ",\"code\":" + std::to_string(code) +
            ",\"occur_time\":" + std::to_string(occur_time) + ",\"data\":" + data + "}\n";
}

void daemon_voice::presence(const char *status, const char *mac, u32 app, int64_t start, int64_t minutes, int64_t end)
{
    say(1023, "[" + presence_entry(status, mac, app, start, minutes, end) + "]");
}

void daemon_voice::history_of(const char *mac, u32 app, int64_t minutes, int64_t occur_time)
{
    say(1008, history_entry(mac, "Ben's tablet", app, minutes), occur_time);
}

void daemon_voice::status_of(const char *mac, u32 app, int status)
{
    say(0, std::string("[{\"mac\":\"") + mac + "\",\"app_id\":" + std::to_string(app) + ",\"class_type\":0,\"app_status\":" +
               std::to_string(status) + ",\"timestamp\":" + std::to_string(status ? time - 500 : 60) + "}]");
}

void daemon_voice::using_until(const char *mac, u32 app, int64_t start, int64_t minutes)
{
    for (int64_t told = 1; told <= minutes; ++told) {
        time = start + told * 60 + 5;
        presence("using", mac, app, start, told);
    }
}

void daemon_voice::whole_session(const char *mac, u32 app, int64_t start, int64_t minutes)
{
    time = start;
    presence("online", mac, app, start, 0, start - 4000);
    status_of(mac, app, 1);
    using_until(mac, app, start, minutes);
    time = start + minutes * 60 + 190;
    status_of(mac, app, 0);
    // Its "endtime" is sometimes that of an older session.
    presence("offline", mac, app, start, minutes, minutes % 2 ? start + minutes * 60 : start - 4000);
    history_of(mac, app, minutes);
}
