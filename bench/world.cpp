#include "bench/world.h"

#include "simulator/world/household_files.h"
#include "simulator/world/kernel_messages.h"
#include "simulator/world/private_network.h"

#include <filesystem>
#include <fstream>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

namespace {

constexpr u32 rule = 4711;

void check(bool done, const char *what)
{
    if (done)
        return;
    perror(what);
    _exit(1);
}

std::string mac_of(u32 device)
{
    char text[32];
    snprintf(text, sizeof(text), "02-00-5E-00-%02X-%02X", device / 256, device % 256);
    return text;
}

// Every class with some of the apps, none of the limits within reach of a short run.
void write_limits(const std::string &mac)
{
    std::string directory = std::string(state_directory) + "/config/";
    std::filesystem::create_directories(directory);
    std::ofstream file(directory + mac + ".config");
    file << "{\"device\":\"" << mac << "\",\"data\":[";
    for (u32 type = 1; type <= 5; type++) {
        file << (type > 1 ? "," : "") << "{\"class_type\":" << type << ",\"onoff\":1,\"use_time\":600,\"appid\":[";
        for (u32 app = 0; app < 20; app++)
            file << (app > 0 ? "," : "") << first_app + type * 20 - 20 + app;
        file << "]}";
    }
    file << "],\"appids\":[{\"class_type\":\"1\",\"appid\":[" << first_app << "]}],\"payment\":{\"enable\":1,\"weixin\":1,"
         << "\"alipay\":1,\"qqpay\":1,\"applepay\":1}}";
}

} // namespace

std::string address_of(u32 device)
{
    return "10.77." + std::to_string(1 + device / 200) + "." + std::to_string(1 + device % 200);
}

void make_world(u32 devices, const std::string &daemon_path)
{
    check(unshare(CLONE_NEWNET | CLONE_NEWNS) == 0, "a private network");
    std::vector<device_entry> household;
    for (u32 i = 0; i < devices; i++)
        household.push_back({"device " + std::to_string(i), mac_of(i), address_of(i), 1, 1, true});
    check(make_private_tmp({daemon_path, "/proc/self/exe"}) && make_lan("10.77.0.1/16") && write_settings() &&
              write_roster(household) && settle_neighbours(household),
          "the household");
    for (const device_entry &device : household)
        write_limits(device.mac);
    std::ofstream(std::string(state_directory) + "/catalogue.json")
        << "{\"data\":[{\"class_type\":\"1\",\"appid\":[1000,1001]}]}";
    setenv("APPIDENT_PLATFORM_SETTINGS", settings_path, 1);
}

message hit(u32 device, u32 app, hit_kind kind)
{
    return accounting_message(
        {application_word(app), kind == starting ? rule | start_mark : rule, 3, address_of(device), "203.0.113.9", 1400, 1400});
}

int open_sender()
{
    int fd = open_conntrack();
    check(fd >= 0, "a netlink socket");
    return fd;
}

void send_to_group(int fd, u32 group, const message &bytes)
{
    check(multicast(fd, group, bytes.data(), bytes.size()), "a multicast");
}

void start_every_app(int fd, u32 group, u32 devices)
{
    for (u32 app = 0; app < apps_in_use; app++) {
        for (u32 device = 0; device < devices; device++)
            send_to_group(fd, group, hit(device, first_app + app, starting));
        usleep(1000 * (1 + devices / 4));
    }
}
