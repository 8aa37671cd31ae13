// The request socket where others may write: what stood at its path, who listens there instead, and who comes second.
#include "tests/system/platform/place.h"

#include "common/guards.h"
#include "igd/igd_lib.h"
#include "platform/linux/client/request_client.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

namespace {

int answer_nothing(unsigned int, void *, void *, void *)
{
    return 0;
}

const client_request anything = {8, "{}", nullptr, nullptr, 0};

// A daemon in a child, serving for ever; killed at the end.
struct serving_child {
    serving_child()
    {
        pid = fork();
        if (pid != 0)
            return;
        int server = nt_ipcserver_init2(socket_path.c_str(), answer_nothing);
        for (pollfd ready = {server, POLLIN, 0}; server >= 0;)
            if (poll(&ready, 1, -1) == 1)
                ipc_server_accept2();
        _exit(1);
    }
    ~serving_child()
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    pid_t pid;
};

bool is_answered()
{
    return comes_true([] { return call_daemon(socket_path.c_str(), 2000, anything, nullptr) == request_done; });
}

bool listen_at(const std::string &path)
{
    fd_guard fd(socket(AF_UNIX, SOCK_SEQPACKET, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 && chmod(path.c_str(), 0777) == 0 &&
           listen(fd.release(), 5) == 0;
}

TEST(socket_path, that_is_taken_away_is_put_back)
{
    serving_child daemon;
    ASSERT_TRUE(is_answered());
    std::filesystem::remove(socket_path);
    std::filesystem::create_directories(socket_path + "/deep/in");
    EXPECT_TRUE(comes_true([] { return std::filesystem::is_socket(socket_path); }));
    EXPECT_TRUE(is_answered());
    EXPECT_EQ(mode_of(socket_path), 0660u);
    for (const auto &left : std::filesystem::directory_iterator(home))
        EXPECT_EQ(left.path().string().find(".socket."), std::string::npos) << "left over: " << left.path();
}

TEST(socket_path, that_cannot_be_had_is_tried_again)
{
    const std::string place = home + "place";
    const std::string path = place + "/requests";
    int server = nt_ipcserver_init2(path.c_str(), answer_nothing); // the directory is missing
    ASSERT_GE(server, 0);
    EXPECT_TRUE(comes_true([] { return counter_of("socket_retries") > 0; }));
    std::filesystem::create_directory(place);
    EXPECT_TRUE(comes_true([&] {
        pollfd ready = {server, POLLIN, 0};
        if (poll(&ready, 1, 100) == 1)
            ipc_server_accept2();
        return std::filesystem::is_socket(path);
    }));
}

TEST(socket_path, of_somebody_else_gets_no_request)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "cannot become another user";
    chmod(home.c_str(), 01777);
    std::filesystem::create_directories(home + "run");
    pid_t rogue = fork();
    if (rogue == 0)
        _exit(setgid(65534) == 0 && setuid(65534) == 0 && listen_at(socket_path) ? pause() : 1);
    EXPECT_TRUE(comes_true([] { return call_daemon(socket_path.c_str(), 200, anything, nullptr) == request_server_foreign; }));
    kill(rogue, SIGKILL);
    waitpid(rogue, nullptr, 0);
}

TEST(socket_path, without_any_descriptor_left_costs_no_time_and_comes_back)
{
    int server = nt_ipcserver_init2(socket_path.c_str(), answer_nothing);
    fd_guard client(connect_to(socket_path, SOCK_SEQPACKET));
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit none = {3, before.rlim_max}; // not even the number of the spare one
    setrlimit(RLIMIT_NOFILE, &none);
    pollfd ready = {server, POLLIN, 0};
    int woken = 0;
    for (int i = 0; i < 50; ++i)
        if (poll(&ready, 1, 1) == 1) {
            ++woken;
            ipc_server_accept2();
        }
    EXPECT_LT(woken, 5);
    setrlimit(RLIMIT_NOFILE, &before);
    char answer;
    EXPECT_TRUE(comes_true([&] {
        if (poll(&ready, 1, 10) == 1)
            ipc_server_accept2();
        return counter_of("requests_too_slow") == 1 || recv(client.get(), &answer, 1, MSG_DONTWAIT) == 0;
    }));
}

} // namespace
