// The program itself on a spool and a database of its own.
#ifndef TESTS_HOME_RUNNING_HOME_H
#define TESTS_HOME_RUNNING_HOME_H

#include "common/guards.h"
#include "home/child_process.h"
#include "home/database.h"
#include "tests/home/daemon_voice.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

constexpr int64_t hour_ms = 3600000;

// A name that would do harm in a shell, in a configuration of curl, in a label, in a topic; as JSON has it.
constexpr const char *hostile_name = R"($(touch harm);`touch harm` \"x\\\" {{ 1 }} a/+/#)";

inline std::string limit_of(const char *mac, int minutes)
{
    return std::string("{\"endmac\":\"") + mac + "\",\"alias\":\"" + hostile_name + "\",\"class_type\":\"1\",\"use_time\":\"" +
           std::to_string(minutes) + "\"}";
}

// Listens on loopback, on a port that was free.
inline int listen_on_loopback(int *port)
{
    fd_guard fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    sockaddr *any = reinterpret_cast<sockaddr *>(&address);
    EXPECT_TRUE(bind(fd.get(), any, size) == 0 && listen(fd.get(), 8) == 0 && getsockname(fd.get(), any, &size) == 0);
    *port = ntohs(address.sin_port);
    return fd.release();
}

inline void start(child_process *child, const std::vector<std::string> &arguments)
{
    ASSERT_TRUE(start_child(child, arguments, {"TZ=UTC", "PATH=/usr/sbin:/usr/bin:/bin"}, "", uptime_ms() + hour_ms));
}

struct running_home : testing::Test {
    scratch_directory directory;
    daemon_voice daemon;
    child_process program;

    ~running_home() override { end_child(&program); }
    void begin(const std::string &settings)
    {
        write_file(directory.file("home.json"), "{\"database\":\"" + directory.file("home.db") + "\",\"runtime_dir\":\"" +
                                                    directory.path + "\",\"request_socket\":\"" + directory.file("ipc") +
                                                    "\",\"commit_interval\":1," + settings + "}");
        start(&program, {HOME_PROGRAM, "--settings", directory.file("home.json")});
    }
    std::string offline(const std::string &options)
    {
        return output_of(HOME_PROGRAM " --settings " + directory.file("home.json") + " " + options);
    }
    void write_spool()
    {
        fd_guard file(open(directory.file("pushes.jsonl").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640));
        ASSERT_EQ(write(file.get(), daemon.text.data(), daemon.text.size()), static_cast<ssize_t>(daemon.text.size()));
        daemon.text.clear();
    }
    void say_limit(const char *mac, int minutes, int64_t age = 0)
    {
        daemon.time = time(nullptr) - age;
        daemon.say(1015, limit_of(mac, minutes));
        write_spool();
    }
};

#endif
