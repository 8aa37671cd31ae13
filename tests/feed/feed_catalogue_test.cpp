// The catalogue's lines, the one that is shipped, and the daemon's catalogue made of it.
#include "feed/app_files.h"

#include <algorithm>
#include <cjson/cJSON.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <stdio.h>
#include <unistd.h>

namespace {

struct feed_catalogue_lines : testing::Test {
    app_catalogue apps;
    std::vector<std::string> complaints;

    void read(const std::string &text) { read_apps_text("apps.conf", text, &apps, &complaints); }
    uint32_t by_host(const std::string &host)
    {
        const app_rule *rule = apps.by_host(host);
        return rule ? rule->id : 77777;
    }
};

} // namespace

TEST_F(feed_catalogue_lines, matches_the_longest_host_on_label_borders)
{
    read("3001 3 Films 300 60 x.com cdn.x.com # the rest is a comment\n"
         "6001 6 Pictures 150 15 pictures.*.shared.example also:buttons.pictures.example\n"
         "6002 6 Friends 150 15 shared.example big.video.x.com not:ads.shared.example\n");
    EXPECT_TRUE(complaints.empty());
    EXPECT_EQ(by_host("x.com"), 3001u);
    EXPECT_EQ(by_host("a.b.cdn.x.com"), 3001u);
    EXPECT_EQ(by_host("a.big.video.x.com"), 6002u);
    EXPECT_EQ(by_host("netflix.com"), 77777u);
    EXPECT_EQ(by_host("com"), 77777u);
    EXPECT_EQ(by_host("shared.example"), 6002u);
    EXPECT_EQ(by_host("pictures.somewhere.shared.example"), 6001u);
    EXPECT_EQ(by_host("pictures.shared.example"), 6001u);
    EXPECT_EQ(by_host("old-pictures.somewhere.shared.example"), 6002u);
    EXPECT_EQ(by_host("a.ads.shared.example"), 0u);
    EXPECT_TRUE(apps.by_host("buttons.pictures.example")->is_embedded);
}

TEST_F(feed_catalogue_lines, takes_the_owners_additions_over_the_shipped_lines)
{
    read("2001 2 Talk 20 2 talk.example ndpi:Talk call:TalkCall net:198.51.100.0/24 net:198.51.100.128/25\n");
    read_apps_text("own.conf", "2001 - - 40 - more.example\n8100 8 Shop 100 10 talk.example net:198.51.100.128/25\n", &apps,
                   &complaints);
    EXPECT_TRUE(complaints.empty());
    const app_entry *talk = apps.find(2001);
    EXPECT_EQ(talk->name, "Talk");
    EXPECT_EQ(talk->start_bytes, 40000u);
    EXPECT_EQ(talk->continue_bytes, 2000u);
    EXPECT_EQ(by_host("more.example"), 2001u);
    EXPECT_EQ(by_host("talk.example"), 8100u);
    EXPECT_TRUE(apps.by_ndpi_name("TalkCall")->is_call);
    EXPECT_FALSE(apps.by_ndpi_name("Talk")->is_call);
    ip_address address;
    read_address("198.51.100.1", &address);
    EXPECT_EQ(apps.by_address(address), 2001u);
    read_address("198.51.100.200", &address);
    EXPECT_EQ(apps.by_address(address), 8100u);
}

TEST_F(feed_catalogue_lines, names_bad_lines_and_skips_them_whole)
{
    const std::pair<const char *, const char *> bad[] = {
        {"0 1 Zero 1 1", "'0' is no app id"},
        {"8 1 Eight 1 1", "'8' is no app id"},
        {"303 1 Pay 1 1", "'303' is no app id"},
        {"65536 1 Big 1 1", "'65536' is no app id"},
        {"5 1 Five 1", "too few words"},
        {"5 x Five 1 1", "'x' is no class"},
        {"5 - Five 1 1", "'-' is no class"},
        {"5 1 Fi\"ve 1 1", "'Fi\"ve' is no app name"},
        {"5 1 Five 0 1", "'0' is no number of kB"},
        {"5 1 Five 1 1 good.example com", "'com' is no host name"},
        {"5 1 Five 1 1 good.example amazonaws.com", "'amazonaws.com' is shared by many apps"},
        {"5 1 Five 1 1 good.example net:10.0.0.0/33", "'10.0.0.0/33' is no network"},
        {"5 1 Five 1 1 good.example udp:53", "'udp:53' is no kind of rule"},
    };
    std::string text = "# nothing wrong here\n\n";
    for (const auto &one : bad)
        text += std::string(one.first) + "\n";
    read(text + "6 1 Six 1 1 six.example");
    ASSERT_EQ(complaints.size(), std::size(bad));
    for (size_t i = 0; i < complaints.size(); i++)
        EXPECT_EQ(complaints[i], "apps.conf:" + std::to_string(i + 3) + ": " + bad[i].second);
    EXPECT_EQ(apps.apps.size(), 1u);
    EXPECT_EQ(by_host("six.example"), 6u);
    EXPECT_EQ(by_host("good.example"), 77777u);
}

TEST_F(feed_catalogue_lines, ships_apps_enough_that_host_names_alone_tell)
{
    ASSERT_TRUE(read_apps(APPS_CONF, &apps, &complaints));
    EXPECT_TRUE(complaints.empty()) << complaints[0];
    EXPECT_GE(apps.apps.size(), 80u);
    std::vector<uint32_t> by_name;
    for (const auto &host : apps.hosts)
        if (host.second.id != 0 && !host.second.is_embedded)
            by_name.push_back(host.second.id);
    std::sort(by_name.begin(), by_name.end());
    EXPECT_GE(std::unique(by_name.begin(), by_name.end()) - by_name.begin(), 60);
    for (const auto &app : apps.apps) {
        EXPECT_EQ(app.second.app_class, app.first / 1000) << app.second.name;
        EXPECT_GT(app.second.start_bytes, app.second.continue_bytes) << app.second.name;
    }
    // Each rule stands once, so that no app silently takes another's.
    std::ifstream file(APPS_CONF);
    std::vector<std::string> rules;
    for (std::string line, word; std::getline(file, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        for (int i = 0; words >> word; i++)
            if (i >= 5)
                rules.push_back(word);
    }
    std::sort(rules.begin(), rules.end());
    auto twice = std::adjacent_find(rules.begin(), rules.end());
    EXPECT_EQ(twice, rules.end()) << *twice;
}

TEST_F(feed_catalogue_lines, and_daemon_know_the_same_apps)
{
    ASSERT_TRUE(read_apps(APPS_CONF, &apps, &complaints));
    FILE *made = popen(MAKE_CATALOGUE " " APPS_CONF, "r");
    std::string text(1 << 16, 0);
    text.resize(fread(text.data(), 1, text.size(), made));
    EXPECT_EQ(pclose(made), 0);
    cJSON *root = cJSON_Parse(text.c_str());
    ASSERT_NE(root, nullptr);
    size_t listed = 0;
    const cJSON *entry = nullptr, *id = nullptr;
    cJSON_ArrayForEach(entry, cJSON_GetObjectItem(root, "data")) {
        cJSON_ArrayForEach(id, cJSON_GetObjectItem(entry, "appid")) {
            const app_entry *app = apps.find(static_cast<uint32_t>(id->valueint));
            ASSERT_NE(app, nullptr);
            EXPECT_EQ(std::to_string(app->app_class), cJSON_GetObjectItem(entry, "class_type")->valuestring);
            EXPECT_EQ(app->name,
                      cJSON_GetObjectItem(cJSON_GetObjectItem(root, "names"), std::to_string(app->id).c_str())->valuestring);
            listed++;
        }
    }
    EXPECT_EQ(listed, apps.apps.size());
    cJSON_Delete(root);
    // A file that is there stays as it is where a line is wrong.
    std::filesystem::path kept = std::filesystem::temp_directory_path() / ("feed-catalogue-" + std::to_string(getpid()));
    auto make = [&](const std::string &line) {
        return system(("echo '" + line + "' | " MAKE_CATALOGUE " -o " + kept.string() + " /dev/stdin 2>/dev/null").c_str());
    };
    EXPECT_EQ(make("7 1 Seven 1 1"), 0);
    auto size = std::filesystem::file_size(kept);
    EXPECT_NE(make("8 1 Eight 1 1"), 0);
    EXPECT_EQ(std::filesystem::file_size(kept), size);
    std::filesystem::remove(kept);
}

TEST(feed_app_files, are_read_again_when_one_of_them_changes)
{
    std::filesystem::path directory = std::filesystem::temp_directory_path() / ("feed-apps-" + std::to_string(getpid()));
    std::filesystem::create_directories(directory);
    std::string installed = directory / "apps.conf", own = directory / "own.conf";
    std::ofstream(installed) << "5 1 Five 10 1 five.example\n";
    app_files files(installed, own);
    app_catalogue apps;
    ASSERT_TRUE(files.read(&apps));
    EXPECT_FALSE(files.have_changed());
    EXPECT_EQ(files.skipped(), 0u) << "it need not be there";
    std::ofstream(own) << "6 1 Six 10 1 six.example\n";
    EXPECT_TRUE(files.have_changed());
    ASSERT_TRUE(files.read(&apps));
    EXPECT_EQ(apps.apps.size(), 2u);
    EXPECT_FALSE(files.have_changed());
    std::filesystem::permissions(own, std::filesystem::perms::owner_read);
    EXPECT_TRUE(files.have_changed());
    std::filesystem::remove(own);
    std::filesystem::create_symlink(own, own); // not even root can read it
    ASSERT_TRUE(files.read(&apps));
    EXPECT_EQ(files.skipped(), 1u);
    std::filesystem::remove(installed);
    EXPECT_TRUE(files.have_changed());
    EXPECT_FALSE(files.read(&apps));
    std::filesystem::remove_all(directory);
}
