#include "tests/system/platform/place.h"

#include "simulator/world/private_network.h"

#include "common/counter_page.h"
#include "tests/kit/leftovers.h"

#include <arpa/inet.h>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

std::string home;
std::string socket_path;
bool own_network = false;

void write_file(const std::string &name, const std::string &text)
{
    std::ofstream(home + name + ".new") << text;
    std::filesystem::rename(home + name + ".new", home + name);
}

std::string read_file(const std::string &name)
{
    return text_of(home + name);
}

mode_t mode_of(const std::string &path)
{
    struct stat about = {};
    return stat(path.c_str(), &about) == 0 ? about.st_mode & 07777 : 0;
}

u32 counter_of(const std::string &name)
{
    counter_reading read[64];
    int count = counter_page_read((home + "run/platform.counters").c_str(), read, 64, nullptr);
    for (int i = 0; i < count; ++i)
        if (name == read[i].name)
            return read[i].value;
    ADD_FAILURE() << "no counter " << name;
    return 0;
}

bool counts(const std::string &name, u64 wanted)
{
    return comes_true([&] { return counter_of(name) == wanted; });
}

int connect_to(const std::string &path, int type)
{
    int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0)
        return fd;
    close(fd);
    return -1;
}

int refuse(unsigned int, void *, void *, void *)
{
    return -1;
}

void tell_kernel(nl_sock *kernel, int type, const std::string &address, const std::string &mac, uint16_t state,
                 const char *where)
{
    nl_msg *message = nlmsg_alloc_simple(type, type == RTM_NEWNEIGH ? NLM_F_CREATE | NLM_F_REPLACE : 0);
    bool v4 = address.find(':') == std::string::npos;
    unsigned char bytes[16];
    EXPECT_EQ(inet_pton(v4 ? AF_INET : AF_INET6, address.c_str(), bytes), 1) << address;
    ndmsg about = {
        static_cast<unsigned char>(v4 ? AF_INET : AF_INET6), 0, 0, static_cast<int>(if_nametoindex(where)), state, 0, 0};
    nlmsg_append(message, &about, sizeof about, NLMSG_ALIGNTO);
    nla_put(message, NDA_DST, v4 ? 4 : 16, bytes);
    if (!mac.empty())
        nla_put(message, NDA_LLADDR, 6, mac.data());
    EXPECT_EQ(nl_send_sync(kernel, message), 0) << address;
}

int as_nobody(const std::vector<gid_t> &groups, const std::function<int()> &act)
{
    pid_t child = fork();
    if (child == 0)
        _exit(setgroups(groups.size(), groups.data()) != 0 || setgid(65534) != 0 || setuid(65534) != 0 ? 99 : act());
    int status = 0;
    waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

int main(int argc, char **argv)
{
    char name[] = "/tmp/platform_test.XXXXXX";
    home = std::string(mkdtemp(name)) + "/";
    leave_nothing_in(home);
    socket_path = home + "requests";
    std::filesystem::create_directories(home + "state");
    write_file("settings.json", "{\"state_dir\":\"" + home + "state\",\"runtime_dir\":\"" + home +
                                    "run\",\"spool_limit\":8192,\"lan_interface\":5,\"offline_after\":1,\"catalogue\":\"" +
                                    home + "installed.json\"}");
    setenv("APPIDENT_PLATFORM_SETTINGS", (home + "settings.json").c_str(), 1);
    own_network =
        (may_set_up_networks() && unshare(CLONE_NEWNET) == 0) || (geteuid() != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
