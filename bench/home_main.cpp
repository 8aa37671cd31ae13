// home_bench: what the history costs a household of ten devices that are used five hours a day each.
//
// usage: home_bench DIRECTORY     an empty one, on the kind of disk that matters
#include "bench/home_page.h"
#include "home/days.h"
#include "home/joining.h"
#include "home/queries.h"
#include "home/upkeep.h"
#include "simulator/world/spool_lines.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <map>

namespace {

constexpr int devices = 10, sessions_a_day = 25, session_minutes_mean = 12;
constexpr int64_t commit_interval = 300, kept_days = 90;

struct told_line {
    int code;
    std::string data;
};

// One day's pushes: "using" of all devices together once a minute.
std::multimap<int64_t, told_line> day_of_pushes(int64_t midnight)
{
    std::multimap<int64_t, told_line> told;
    std::map<int64_t, std::string> in_use;
    for (int device = 0; device < devices; ++device) {
        std::string mac = "AA-BB-CC-00-00-0" + std::to_string(device);
        int64_t start = midnight + 8 * 3600 + rand() % 3600;
        for (int i = 0; i < sessions_a_day; ++i) {
            int64_t minutes = 2 + rand() % (2 * session_minutes_mean - 4);
            u32 app = 1000 + static_cast<u32>(rand()) % 60;
            told.insert({start, {1023, "[" + presence_entry("online", mac, app, start, 0) + "]"}});
            for (int64_t minute = 1; minute <= minutes + 3; ++minute) {
                std::string &list = in_use[(start + minute * 60 + 5) / 60 * 60 + 7];
                list += (list.empty() ? "" : ",") + presence_entry("using", mac, app, start, std::min(minute, minutes));
            }
            int64_t end = start + minutes * 60 + 230;
            told.insert({end, {1023, "[" + presence_entry("offline", mac, app, start, minutes) + "]"}});
            told.insert({end, {1008, history_entry(mac, "Device " + std::to_string(device), app, minutes)}});
            start = end + 10 + rand() % 600;
        }
    }
    for (const auto &minute : in_use)
        told.insert({minute.first, {1023, "[" + minute.second + "]"}});
    return told;
}

int64_t number_in(const char *path, const char *key)
{
    FILE *file = fopen(path, "re");
    char text[200];
    long long value = 0;
    while (file && fgets(text, sizeof(text), file))
        if (strncmp(text, key, strlen(key)) == 0)
            value = atoll(text + strlen(key));
    if (file)
        fclose(file);
    return value;
}

double seconds()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

int64_t file_size(const std::string &path)
{
    struct stat about = {};
    return stat(path.c_str(), &about) == 0 ? about.st_size : 0;
}

// Feeds the days, committing as often as the program would, and prints what that took.
void feed(history *all, int64_t midnight, int days)
{
    daemon_voice voice;
    size_t bytes = 0;
    int64_t written = 0, last_day_written = 0, committed = midnight;
    double taken = 0;
    for (int day = 0; day < days; ++day) {
        std::multimap<int64_t, told_line> told = day_of_pushes(midnight + day * 86400);
        written = number_in("/proc/self/io", "wchar: ");
        double began = seconds();
        for (const auto &one : told) {
            if (one.first - committed >= commit_interval) {
                commit_batch(&all->db);
                committed = one.first;
            }
            voice.time = one.first;
            voice.say(one.second.code, one.second.data);
            bytes += voice.text.size();
            voice.text.pop_back(); // the end of the line
            take_line(all, voice.text.c_str(), voice.text.size());
            voice.text.clear();
        }
        drop_old_rows(all, midnight + (day + 1) * 86400, kept_days, 10);
        commit_batch(&all->db);
        taken += seconds() - began;
        last_day_written = number_in("/proc/self/io", "wchar: ") - written;
    }
    printf("lines taken, with commits each %lld s      %.0f a second\n", static_cast<long long>(commit_interval),
           static_cast<double>(voice.seq) / taken);
    printf("written on the last day                  %.2f MB of a spool of %.2f MB\n",
           static_cast<double>(last_day_written) / 1e6, static_cast<double>(bytes) / days / 1e6);
}

double median_ms(history *all, int64_t midnight)
{
    std::vector<double> times;
    size_t rows = 0;
    for (int round = 0; round < 201; ++round) {
        double began = seconds();
        rows += sessions_between(&all->db, midnight, midnight + 86400).size() +
                gaps_between(&all->db, midnight, midnight + 86400).size() + alerts_since(&all->db, midnight, 500).size();
        times.push_back(seconds() - began);
    }
    std::nth_element(times.begin(), times.begin() + 100, times.end());
    printf("rows of a day's timeline                 %zu\n", rows / 201);
    return times[100] * 1000;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        fputs("usage: home_bench DIRECTORY [DAYS]\n", stderr);
        return 2;
    }
    constexpr int default_days = 400;
    int days = argc > 2 ? atoi(argv[2]) : default_days;
    std::string path = std::string(argv[1]) + "/bench.db", why;
    history all;
    if (!open_history(&all, path, {}, &why)) {
        fprintf(stderr, "%s: %s\n", path.c_str(), why.c_str());
        return 1;
    }
    int64_t midnight = day_start(day_of(time(nullptr)));
    feed(&all, midnight - days * int64_t{86400}, days);
    close_history(&all);
    printf("database of %d days, sessions of %lld       %.2f MB\n", days, static_cast<long long>(kept_days),
           static_cast<double>(file_size(path)) / 1e6);
    double began = seconds();
    all = history();
    open_history(&all, path, {}, &why);
    printf("opened and checked in                    %.1f ms\n", (seconds() - began) * 1000);
    printf("a day's timeline from the database       %.2f ms\n", median_ms(&all, midnight - 2 * 86400));
    printf("resident                                 %.1f MB\n",
           static_cast<double>(number_in("/proc/self/status", "VmRSS:")) / 1000);
    close_history(&all);
#ifdef HOME_PROGRAM
    return measure_page(argv[1], path, day_text(day_after(day_of(midnight), -2))) ? 0 : 1;
#else
    return 0;
#endif
}
