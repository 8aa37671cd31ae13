// The configuration directory, JSON read with bounds, and counter pages.
#include "tests/system/platform/place.h"

#include "common/counter_page.h"
#include "common/guards.h"
#include "igd/igd_lib.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace {

TEST(storage, is_made_when_missing_and_reads_within_bounds)
{
    char path[256];
    ASSERT_EQ(get_config_path(path, 255), 0);
    EXPECT_EQ(path, home + "state/config/");
    EXPECT_EQ(get_config_path(path, 10), -1);
    EXPECT_EQ(mode_of(home + "state/config"), 0700u);
    // Neither too deep, nor endless.
    const std::string nest = std::string(32, '[') + std::string(32, ']'), large = "\"" + std::string(1 << 20, 'x') + "\"";
    for (const std::string &text : {nest, "[" + nest + "]", large}) {
        write_file("some.json", text);
        EXPECT_EQ(json_tree(json_load_file((home + "some.json").c_str())) != nullptr, text == nest);
        EXPECT_EQ(json_tree(json_load_buffer(text.c_str())) != nullptr, text == nest);
    }
    // A value costs memory, however short its text: as many as this are refused, and kept aside like all that cannot be read.
    for (const std::string &bad : {"[0" + std::string(1 << 19, ',') + "0]", std::string("{\"device\":"), std::string()}) {
        write_file("some.config", bad);
        EXPECT_FALSE(json_load_file((home + "some.config").c_str()));
        EXPECT_EQ(read_file("some.config.bad"), bad);
        EXPECT_FALSE(std::filesystem::exists(home + "some.config"));
    }
    EXPECT_TRUE(counts("config_unreadable", 4));
    EXPECT_FALSE(json_load_file((home + "none").c_str()) || json_load_file(home.c_str()) || json_load_file("/dev/zero"));
    // The counters' page in /tmp is never written through somebody's link, and read only when it is one.
    const char *const names[] = {"a name longer than a slot has room for"};
    counter_reading read[1];
    write_file("precious", "kept");
    std::filesystem::create_symlink(home + "precious", home + "page");
    EXPECT_EQ(counter_page_read((home + "page").c_str(), read, 1, nullptr), -1);
    std::atomic<u32> values[] = {7};
    const counter_page page = {names, values, 1, counter_page_create((home + "page").c_str(), {names, values, 1, -1})};
    ASSERT_GE(page.fd, 0);
    EXPECT_EQ(mode_of(home + "page"), 0640u);
    ASSERT_EQ(counter_page_read((home + "page").c_str(), read, 1, nullptr), 1);
    EXPECT_STREQ(read[0].name, "a name longer than a slot h");
    EXPECT_EQ(read_file("precious"), "kept");
    // Cut short by somebody, it is whole again with the next copy.
    std::filesystem::resize_file(home + "page", 0);
    values[0] = 8;
    EXPECT_EQ(counter_page_read((home + "page").c_str(), read, 1, nullptr), -1);
    counter_page_write(page);
    ASSERT_EQ(counter_page_read((home + "page").c_str(), read, 1, nullptr), 1);
    EXPECT_EQ(read[0].value, 8u);
}

// In a child with hardly any memory left: a good file must not be taken for a bad one.
TEST(storage, keeps_a_file_that_memory_is_short_for)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs more addresses than are left";
#endif
    std::string many = "[0";
    for (int i = 0; i < 30000; ++i)
        many += ",0";
    write_file("some.config", many + "]");
    pid_t child = fork();
    if (child == 0) {
        rlimit none = {0, 0};
        setrlimit(RLIMIT_AS, &none);
        for (size_t size = 1 << 20; size > 60000; size /= 2)
            while (malloc(size)) {
            }
        _exit(json_load_file((home + "some.config").c_str()) ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "1: there was memory after all";
    EXPECT_TRUE(std::filesystem::exists(home + "some.config"));
    EXPECT_TRUE(json_tree(json_load_file((home + "some.config").c_str())));
}

} // namespace
