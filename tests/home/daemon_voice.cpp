#include "tests/home/daemon_voice.h"

#include "home/joining.h"
#include "home/queries.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <fstream>

void daemon_voice::say(int code, const std::string &data, int64_t occur_time)
{
    ++seq;
    std::string head = numbered ? "\"run\":\"" + run + "\",\"seq\":" + std::to_string(seq) + "," : "";
    text += "{" + head + "\"time\":" + std::to_string(time) + ",\"code\":" + std::to_string(code) +
            ",\"occur_time\":" + std::to_string(occur_time) + ",\"data\":" + data + "}\n";
}

void daemon_voice::presence(const char *status, const char *mac, u32 app, int64_t start, int64_t minutes, int64_t end)
{
    say(1023, std::string("[{\"endmac\":\"") + mac + "\",\"role\":\"1\",\"appid\":\"" + std::to_string(app) +
                  "\",\"starttime\":\"" + std::to_string(start) + "\",\"endtime\":\"" + std::to_string(end) +
                  "\",\"sumtime\":\"" + std::to_string(minutes) + "\",\"status\":\"" + status + "\",\"folk_id\":\"-1\"}]");
}

void daemon_voice::history_of(const char *mac, u32 app, int64_t minutes, int64_t occur_time)
{
    say(1008,
        std::string("{\"endmac\":\"") + mac + "\",\"alias\":\"Ben's tablet\",\"appid\":\"" + std::to_string(app) +
            "\",\"sumtime\":\"" + std::to_string(minutes * 60) + "\",\"up_traffic\":\"" + std::to_string(minutes * 10) +
            "\",\"down_traffic\":\"" + std::to_string(minutes * 1000) + "\",\"ruleid\":\"1,2\",\"folk_id\":\"-1\"}",
        occur_time);
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

scratch_directory::scratch_directory()
{
    char name[] = "/tmp/appident-home-test-XXXXXX";
    path = mkdtemp(name);
}

scratch_directory::~scratch_directory()
{
    output_of("rm -rf '" + path + "'");
}

void write_file(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string output_of(const std::string &command, int *status)
{
    std::string text;
    FILE *pipe = popen(command.c_str(), "r");
    char piece[4096];
    for (size_t size = 0; pipe && (size = fread(piece, 1, sizeof(piece), pipe)) > 0;)
        text.append(piece, size);
    int ended = pipe ? pclose(pipe) : -1;
    if (status)
        *status = ended;
    return text;
}

void take_text(history *of, const std::string &text)
{
    for (size_t begin = 0, end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
        std::string line = text.substr(begin, end - begin);
        take_line(of, line.c_str(), line.size());
    }
}

std::string sessions_of(history *of, const char *mac)
{
    std::string all;
    int64_t device = find_device(&of->db, mac);
    for (const session &one : sessions_between(&of->db, 1, INT64_C(4000000000), device)) {
        if (device == 0)
            break;
        time_t start = static_cast<time_t>(one.start);
        tm utc = {};
        char text[100];
        gmtime_r(&start, &utc);
        const char *app = one.app == video ? "video" : one.app == chat ? "chat" : one.app == game ? "game" : "?";
        snprintf(text, sizeof(text), "%s%s %02d:%02d +%lld %s", all.empty() ? "" : "; ", app, utc.tm_hour, utc.tm_min,
                 static_cast<long long>(one.minutes), state_name(one.state));
        all += text;
    }
    return all;
}

int64_t value_of(history *of, const char *sql)
{
    sqlite3_stmt *read = nullptr;
    int64_t value = -1;
    if (sqlite3_prepare_v2(of->db.handle, sql, -1, &read, nullptr) == SQLITE_OK && sqlite3_step(read) == SQLITE_ROW)
        value = sqlite3_column_int64(read, 0);
    sqlite3_finalize(read);
    return value;
}

int64_t session_minutes(history *of)
{
    return value_of(of, "SELECT coalesce(sum(minutes),0) FROM session");
}

int64_t day_minutes(history *of)
{
    return value_of(of, "SELECT coalesce(sum(minutes),0) FROM day_use");
}
