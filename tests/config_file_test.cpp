#include "appident/config_file.h"
#include "tests/support/config_files.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

using config_file_test = household;

// The C library's flush, seen and refused.
static int flushes = 0;
static bool flush_fails = false;
extern "C" int fsync(int fd)
{
    ++flushes;
    return flush_fails ? -1 : static_cast<int>(syscall(SYS_fsync, fd));
}

struct merge {
    const char *what, *stored, *sent;
    int result;
    const char *after; // null: as it was
    const char *line;  // of the log
};
const merge merges[] = {
    {"a first text is taken as it comes", "", "no json", 0, "no json", ""},
    {"a replaced class moves to the end, other sections stay",
     "{'device':'@','data':[{'class_type':1,'x':[1]},{'class_type':2}],'appids':[{'a':1}],'payment':{'enable':0},'y':null}",
     "{'data':[{'class_type':1,'onoff':1,'note':'kept'}],'device':'@'}", 0,
     "{'device':'@','data':[{'class_type':2},{'class_type':1,'onoff':1,'note':'kept'}],'appids':[{'a':1}],"
     "'payment':{'enable':0},'y':null}",
     "[app_ident] update_config @ -> ok!"},
    {"several classes, one after the other", "{'device':'@','data':[{'class_type':3},{'class_type':1},{'class_type':1}]}",
     "{'device':'@','data':[{'class_type':2},{'class_type':1,'n':1}]}", 0,
     "{'device':'@','data':[{'class_type':3},{'class_type':1},{'class_type':2},{'class_type':1,'n':1}]}", ""},
    {"an empty list stays empty", "{'device':'@','data':[]}", "{'device':'@','data':[{'class_type':2}]}", 0, nullptr,
     "[app_ident] update_config @ -> ok!"},
    {"a missing list is taken whole", "{'device':'@','payment':{}}",
     "{'device':'@','data':[{'class_type':2},{'class_type':1},{'class_type':3}]}", 0,
     "{'device':'@','payment':{},'data':[{'class_type':2},{'class_type':1},{'class_type':3}]}",
     "[app_ident] update_config -> error 4, add------->data"},
    {"a list of the wrong type is missing", "{'device':'@','data':{'class_type':1},'z':1}",
     "{'device':'@','data':[{'class_type':1}]}", 0, "{'device':'@','z':1,'data':[{'class_type':1}]}", ""},
    {"a class that is no number matches nothing", "{'device':'@','data':[{'class_type':'1'},{}]}",
     "{'device':'@','data':[{'class_type':'1'},7,{'class_type':-1}]}", 0,
     "{'device':'@','data':[{'class_type':'1'},{},{'class_type':'1'},7,{'class_type':-1}]}", ""},
    {"another device's text", "{'device':'@','data':[]}", "{'device':'02-00-00-00-00-0B','data':[{}]}", -1, nullptr,
     "[app_ident] update_config -> new_jitem: cJSON_GetObjectItem error"},
    {"another device's file", "{'device':'02-00-00-00-00-0b','data':[{}]}", "{'device':'@','data':[{}]}", -1, nullptr,
     "[app_ident] update_config -> error 3"},
    {"no device", "{'device':'@'}", "{'device':5,'data':[{}]}", -1, nullptr,
     "[app_ident] update_config -> new_jitem: cJSON_GetObjectItem error"},
    {"no text", "{'device':'@'}", "{", -1, nullptr, "[app_ident] update_config -> new_config_root error"},
    {"no list", "{'device':'@'}", "{'device':'@','data':{}}", -1, nullptr,
     "[app_ident] update_config -> pnew_data_array error"},
    {"nothing in the list", "{'device':'@'}", "{'device':'@','data':[]}", -1, nullptr,
     "[app_ident] update_config -> new_num[0] error"},
    {"a damaged file", "{'device':'@'", "{'device':'@','data':[{}]}", -1, nullptr,
     "[app_ident] update_config -> load_config  error"},
};

TEST_F(config_file_test, limits_are_merged_class_by_class)
{
    for (const merge &m : merges) {
        SCOPED_TRACE(m.what);
        std::filesystem::remove(config_file());
        if (m.stored[0] != '\0')
            store(json(m.stored));
        know(tablet);
        platform.saved = 0;
        EXPECT_EQ(save_config(tablet.mac, json(m.sent).c_str()), m.result);
        EXPECT_EQ(stored(), json(m.after != nullptr ? m.after : m.stored));
        lines log = logged();
        EXPECT_TRUE(m.line[0] == '\0' || has_line(log, json(m.line)));
        // Refused or not: the device is tracked from now on.
        EXPECT_EQ(platform.saved, 1);
        EXPECT_NE(record(tablet), nullptr);
    }
    EXPECT_FALSE(lock_is_held());
}

TEST_F(config_file_test, a_path_that_cannot_be_is_refused)
{
    platform.config_dir = directory + "/in/";
    std::filesystem::create_directories(directory + "/in/a");
    store("{}");
    auto refused = [](const char *mac) {
        cJSON *root = reinterpret_cast<cJSON *>(&root);
        EXPECT_EQ(load_config(mac, &root), -1);
        EXPECT_EQ(root, nullptr);
        EXPECT_EQ(save_config(mac, "{}"), -1);
        EXPECT_EQ(replace_config(mac, "{}"), -1);
        EXPECT_EQ(save_device_pay_config(mac, 1, 1, 1, 1, 1), -1);
    };
    for (const std::string &mac : {std::string(), std::string("../x"), std::string("a/b"), std::string(250, 'A')})
        refused(mac.c_str());
    refused(nullptr);
    platform.failing = {"get_config_path"};
    refused(tablet.mac);
    EXPECT_TRUE(std::filesystem::is_empty(directory + "/in/a"));
    EXPECT_FALSE(std::filesystem::exists(directory + "/x.config"));
    EXPECT_EQ(stored(), "{}");
    EXPECT_EQ(platform.saved, 0);
}

TEST_F(config_file_test, what_cannot_be_written_leaves_the_old_text)
{
    know(tablet);
    std::string long_text = json("{'device':'@','data':[{'class_type':1,'note':'") + std::string(5000, 'x') + json("'}]}");
    auto all_fail = [&](const std::string &old) {
        EXPECT_EQ(save_config(tablet.mac, long_text.c_str()), -1);
        EXPECT_EQ(replace_config(tablet.mac, long_text.c_str()), -1);
        EXPECT_EQ(stored(), old);
    };
    // A directory stands where the new text would be written.
    std::filesystem::create_directory(config_file() + ".new");
    all_fail("");
    EXPECT_TRUE(has_line(logged(), json("[app_ident] save_config @ fopen -> error 3")));
    EXPECT_EQ(record(tablet), nullptr);
    store(json("{'device':'@','data':[{}]}"));
    all_fail(stored());
    EXPECT_EQ(save_device_pay_config(tablet.mac, 1, 1, 1, 1, 1), -1);
    EXPECT_TRUE(has_line(logged(), "[app_ident] update_config -> fopen error"));
    std::filesystem::remove(config_file() + ".new");

    // The disk takes no more than 1000 bytes of a file.
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, SIG_IGN);
    rlimit small = {1000, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    all_fail(stored());
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_FALSE(std::filesystem::exists(config_file() + ".new"));
    flush_fails = true;
    all_fail(stored());
    flush_fails = false;
    flushes = 0;
    // What a kill left behind does not show in the next text.
    std::ofstream(config_file() + ".new") << long_text << long_text;
    EXPECT_EQ(replace_config(tablet.mac, long_text.c_str()), 0);
    EXPECT_EQ(stored(), long_text);
    EXPECT_EQ(flushes, 2); // the text before, the directory after it takes its place
}

// Runs the save in a child that is killed when it comes to its n-th system call, or returns from it. Between two of these
// nothing outside the child changes. False when the save was over before.
static bool killed_at(int n, void (*save)())
{
    pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        save();
        _exit(0);
    }
    int state = 0;
    waitpid(child, &state, 0);
    for (int i = 0; i < n && WIFSTOPPED(state); ++i) {
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        waitpid(child, &state, 0);
    }
    if (!WIFSTOPPED(state))
        return false;
    kill(child, SIGKILL);
    waitpid(child, &state, 0);
    return true;
}

// Kills a child that saves over and over, wherever it is after that time: inside a system call, too.
static void kill_after(useconds_t delay, void (*save)())
{
    pid_t child = fork();
    while (child == 0)
        save();
    usleep(delay);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(config_file_test, a_kill_leaves_the_old_or_the_new_text)
{
    pid_t probe = fork();
    if (probe == 0)
        _exit(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : 1);
    int state = 0;
    waitpid(probe, &state, 0);
    if (state != 0)
        GTEST_SKIP() << "no child may be traced here";

    know(tablet);
    std::string filler(9000, 'x');
    static std::string old_text, new_text, limit;
    limit = json("{'device':'@','data':[{'class_type':1,'note':'") + filler + json("'}]}");
    old_text = json("{'device':'@','data':[{'class_type':1}],'payment':{'enable':0,'weixin':0,'alipay':0,'qqpay':0,"
                    "'applepay':0}}");
    struct {
        void (*save)();
        std::string text;
    } saves[] = {
        {[] { save_config(tablet.mac, limit.c_str()); },
         limit.substr(0, limit.size() - 1) + old_text.substr(old_text.find(",\"payment"))},
        {[] { save_device_pay_config(tablet.mac, 1, 1, 1, 1, 1); }, ""},
        {[] { replace_config(tablet.mac, limit.c_str()); }, limit},
    };
    saves[1].text = old_text;
    for (size_t at = 0; (at = saves[1].text.find(":0", at)) != std::string::npos;)
        saves[1].text[at + 1] = '1';
    int points = 0;
    for (auto &s : saves) {
        std::filesystem::remove(config_file());
        for (int n = 0;; ++n, ++points) {
            store(old_text);
            bool killed = killed_at(n, s.save);
            std::string left = stored();
            ASSERT_TRUE(left == s.text || (killed && left == old_text)) << "at " << n << ": " << left;
            if (!killed)
                break;
        }
        for (useconds_t n = 0; n < 60; ++n, ++points) {
            store(old_text);
            kill_after(n * 50, s.save);
            ASSERT_TRUE(stored() == s.text || stored() == old_text) << "after " << n * 50 << ": " << stored();
        }
    }
    EXPECT_GT(points, 240);
}
