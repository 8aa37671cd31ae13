#include "appident/settings/config_file.h"
#include "tests/kit/config_files.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using config_file_test = household;

// The C library's flush, seen and refused.
int flushes = 0;
bool flush_fails = false;

} // namespace
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
    {"a class that is no number matches nothing", "{'device':'@','data':[{'class_type':'1'},{}]}",
     "{'device':'@','data':[{'class_type':'1'},7,{'class_type':-1}]}", 0,
     "{'device':'@','data':[{'class_type':'1'},{},{'class_type':'1'},7,{'class_type':-1}]}", ""},
    {"another device's text", "{'device':'@','data':[]}", "{'device':'02-00-00-00-00-0B','data':[{}]}", -1, nullptr,
     "[app_ident] update_config -> new_jitem: cJSON_GetObjectItem error"},
    {"another device's file", "{'device':'02-00-00-00-00-0b','data':[{}]}", "{'device':'@','data':[{}]}", -1, nullptr,
     "[app_ident] update_config -> error 3"},
    {"no text", "{'device':'@'}", "{", -1, nullptr, "[app_ident] update_config -> new_config_root error"},
    {"no list", "{'device':'@'}", "{'device':'@','data':{}}", -1, nullptr,
     "[app_ident] update_config -> pnew_data_array error"},
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
        EXPECT_TRUE(m.line[0] == '\0' || std::count(log.begin(), log.end(), json(m.line)) != 0);
        // Refused or not: the device is tracked from now on.
        EXPECT_EQ(platform.saved, 1);
        EXPECT_NE(record(tablet), nullptr);
    }
    EXPECT_FALSE(lock_is_held());
}

TEST_F(config_file_test, the_classes_of_a_request_are_one_write)
{
    know(tablet);
    store(json("{'device':'@','data':[{'class_type':2},{'class_type':9}]}"));
    logged();
    flushes = 0;
    EXPECT_EQ(save_config(tablet.mac, json("{'device':'@','data':[{'class_type':1},{'class_type':2},{'n':3}]}").c_str()), 0);
    EXPECT_EQ(flushes, 2) << "the file and its directory";
    EXPECT_EQ(stored(), json("{'device':'@','data':[{'class_type':9},{'class_type':1},{'class_type':2},{'n':3}]}"));
    lines log = logged();
    std::string path = "[app_ident] load_config -> cfg_path: " + config_file(), ok = json("[app_ident] update_config @ -> ok!");
    ASSERT_GE(log.size(), 6u);
    log.resize(6);
    EXPECT_EQ(log, (lines{path, ok, path, ok, path, ok})) << "as if each class had been stored by itself";
}

TEST_F(config_file_test, a_path_that_cannot_be_is_refused)
{
    platform.config_dir = directory + "/in/";
    std::filesystem::create_directories(directory + "/in/a");
    store("{}");
    const std::string too_long(250, 'A');
    for (const char *mac : {"", "../x", "a/b", too_long.c_str(), static_cast<const char *>(nullptr), tablet.mac}) {
        if (mac == tablet.mac)
            platform.failing = {"get_config_path"};
        cJSON *root = reinterpret_cast<cJSON *>(&root);
        EXPECT_EQ(load_config(mac, &root), -1);
        EXPECT_EQ(root, nullptr);
        EXPECT_EQ(save_config(mac, "{}") + replace_config(mac, "{}") + save_device_pay_config(mac, 1, 1, 1, 1, 1), -3);
    }
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
    std::filesystem::create_directories(config_file() + ".new/full");
    all_fail("");
    EXPECT_EQ(record(tablet), nullptr);
    store(json("{'device':'@','data':[{}]}"));
    all_fail(stored());
    EXPECT_EQ(save_device_pay_config(tablet.mac, 1, 1, 1, 1, 1), -1);
    std::filesystem::remove_all(config_file() + ".new");

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
    EXPECT_EQ(flushes, 2);                                        // the text before, the directory after it takes its place
    ASSERT_EQ(mkfifo((config_file() + ".new").c_str(), 0600), 0); // opening it would wait for a reader
    EXPECT_EQ(replace_config(tablet.mac, long_text.c_str()), 0);
}

namespace {

// Runs the save in a child that is killed when it comes to its n-th system call, or returns from it. Between two of these
// nothing outside the child changes. False when the save was over before.
bool killed_at(int n, void (*save)())
{
    pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
            _exit(1);
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

} // namespace

TEST_F(config_file_test, a_kill_leaves_the_old_or_the_new_text)
{
    if (!killed_at(1, [] {}))
        GTEST_SKIP() << "no child may be traced here";
    know(tablet);
    static std::string limit;
    limit = json("{'device':'@','data':[{'class_type':1,'note':'") + std::string(9000, 'x') +
            json("'},{'class_type':2},{'class_type':3},{'class_type':4},{'class_type':5}]");
    auto file_with = [](const std::string &begin, char on) {
        std::string file = begin + json(",'payment':{'enable':?,'weixin':?,'alipay':?,'qqpay':?,'applepay':?}}");
        std::replace(file.begin(), file.end(), '?', on);
        return file;
    };
    const std::string begin = json("{'device':'@','data':[{'class_type':1}]");
    const std::string old_text = file_with(begin, '0');
    const struct {
        void (*save)();
        std::string text;
    } saves[] = {
        {[] { save_config(tablet.mac, (limit + "}").c_str()); }, file_with(limit, '0')},
        {[] { save_device_pay_config(tablet.mac, 1, 1, 1, 1, 1); }, file_with(begin, '1')},
        {[] { replace_config(tablet.mac, (limit + "}").c_str()); }, limit + "}"},
    };
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
    }
    EXPECT_GT(points, 60);
}
