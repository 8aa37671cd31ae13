// The page's server as browsers meet it, over curl: the program itself, and the real daemon behind it.
#include "home/days.h"
#include "home/web_routes.h"
#include "platform/linux/client/json_text.h"
#include "simulator/world/daemon_process.h"
#include "simulator/world/household_files.h"
#include "tests/home/daemon_voice.h"
#include "tests/system/inside_network.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

constexpr const char *lan_address = "192.168.77.1";
std::string why_not; // what this machine lacks for these tests

std::string text_of(const std::string &path)
{
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

struct web_reply {
    int status = 0;
    std::string head, text;
    json_tree tree;
    std::string code() const
    {
        const char *text_here = cJSON_GetStringValue(cJSON_GetObjectItem(cJSON_GetObjectItem(tree.get(), "error"), "code"));
        return text_here ? text_here : "";
    }
};

struct home_web : testing::Test {
    scratch_directory directory;
    std::string settings = directory.file("home.json"), database = directory.file("home.db"), host = "127.0.0.1:8480";
    std::string scheme = "http", token, yesterday = day_text(day_after(day_of(time(nullptr)), -1));
    pid_t program = -1, daemon = -1;

    void SetUp() override
    {
        if (!why_not.empty())
            GTEST_SKIP() << "NOT TESTED HERE, the page over a network of its own: " << why_not;
    }
    void TearDown() override { end(); }

    // The program, once it answers; `more` are further settings.
    void begin(const std::string &more = "")
    {
        std::filesystem::create_directories(runtime_directory);
        write_file(settings, "{\"database\":\"" + database + "\",\"runtime_dir\":\"" + runtime_directory +
                                 "\",\"installed_catalogue\":\"/none\",\"catalogue\":\"" + state_directory +
                                 "/catalogue.json\"" + more + "}");
        std::string starter = directory.file("start");
        write_file(starter, "#!/bin/sh\nexec " HOME_PROGRAM " --settings " + settings + "\n");
        chmod(starter.c_str(), 0700);
        program = start_daemon(starter);
        ASSERT_TRUE(comes_true([&] { return ask("/healthz").status == 200; }));
    }
    void end()
    {
        int ended = program > 0 ? stop_daemon(program) : 0,
            daemon_ended = daemon > 0 ? stop_daemon(daemon) : status_after_sigterm;
        EXPECT_EQ(ended, 0);
        EXPECT_EQ(daemon_ended, status_after_sigterm);
        program = daemon = -1;
    }
    template <typename condition> static bool comes_true(condition is_true)
    {
        for (int i = 0; i < 600 && !is_true(); ++i)
            usleep(100000);
        return is_true();
    }
    // Of two devices, yesterday: the tablet twenty minutes of video, the phone ten of chat.
    void keep_history()
    {
        daemon_voice voice;
        int64_t noon = day_start(read_day(yesterday)) + 12 * 3600;
        voice.whole_session(tablet, video, noon, 20);
        voice.whole_session(phone, chat, noon + 7200, 10);
        voice.say(1015, "{\"endmac\":\"AA-BB-CC-DD-EE-01\",\"alias\":\"Ben's "
                        "tablet\",\"class_type\":\"2\",\"use_time\":\"20\",\"folk_id\":\"-1\"}");
        write_file(directory.file("spool"), voice.text);
        int status = -1;
        output_of(HOME_PROGRAM " --database " + database + " --import " + directory.file("spool"), &status);
        ASSERT_EQ(status, 0);
    }
    void set_password(const std::string &name, const std::string &more = "")
    {
        int status = -1;
        output_of("echo 'correct horse' | " HOME_PROGRAM " --database " + database + " --password " + name + " " + more,
                  &status);
        ASSERT_EQ(status, 0);
    }
    // `options` of curl; the cookies are the file's of this name.
    web_reply ask(const std::string &path, const std::string &options = "", const std::string &who = "nobody")
    {
        std::string head = directory.file("head"), body = directory.file("body"), jar = directory.file(who.c_str());
        std::string status =
            output_of("rm -f " + body + "; curl -sk --max-time 20 -D " + head + " -o " + body + " -b " + jar + " -c " + jar +
                      " -w '%{http_code}' " + options + " '" + scheme + "://" + host + path + "'");
        web_reply reply = {atoi(status.c_str()), text_of(head), text_of(body), nullptr};
        reply.tree.reset(parse_json_text(reply.text.c_str()));
        return reply;
    }
    web_reply write(const std::string &method, const std::string &path, const std::string &body,
                    const std::string &who = "nobody")
    {
        return ask("/api/v1/" + path,
                   "-X " + method + " -H 'Origin: " + scheme + "://" + host +
                       "' -H 'Content-Type: application/json' -H 'X-Appident-Token: " + token + "' --data-binary '" + body +
                       "'",
                   who);
    }
    web_reply login(const std::string &name, const std::string &password = "correct horse")
    {
        web_reply reply = write("POST", "login", "{\"name\":\"" + name + "\",\"password\":\"" + password + "\"}", name);
        const char *given = cJSON_GetStringValue(cJSON_GetObjectItem(reply.tree.get(), "token"));
        token = given ? given : "";
        return reply;
    }
};

// What a value has to be, by the document; adds what is not so to `faults`.
void check(const cJSON *document, const cJSON *schema, const cJSON *value, const std::string &where, std::string *faults)
{
    auto member = [](const cJSON *object, const char *key) { return cJSON_GetObjectItemCaseSensitive(object, key); };
    if (cJSON_IsNull(value) && cJSON_IsTrue(member(schema, "nullable")))
        return;
    if (const char *name = cJSON_GetStringValue(member(schema, "$ref"))) {
        const cJSON *schemas = member(member(document, "components"), "schemas");
        return check(document, member(schemas, strrchr(name, '/') + 1), value, where, faults);
    }
    std::string type = cJSON_GetStringValue(member(schema, "type"));
    bool fits = type == "object"    ? cJSON_IsObject(value)
                : type == "array"   ? cJSON_IsArray(value)
                : type == "string"  ? cJSON_IsString(value)
                : type == "boolean" ? cJSON_IsBool(value)
                                    : cJSON_IsNumber(value);
    const cJSON *one = nullptr, *allowed = member(schema, "enum");
    bool listed = !allowed;
    cJSON_ArrayForEach(one, allowed)
        listed = listed || cJSON_Compare(one, value, true);
    if (!fits || !listed)
        *faults += where + " is no such " + type + "; ";
    cJSON_ArrayForEach(one, member(schema, "required"))
        if (!member(value, one->valuestring))
            *faults += where + " lacks " + one->valuestring + "; ";
    cJSON_ArrayForEach(one, value) {
        const cJSON *known = one->string ? member(member(schema, "properties"), one->string) : member(schema, "items");
        std::string here = where + (one->string ? std::string(".") + one->string : "[]");
        if (known)
            check(document, known, one, here, faults);
        else
            *faults += here + " is not documented; ";
    }
}

std::string faults_of(const json_tree &document, const char *path, const char *method, const web_reply &reply)
{
    std::string faults = reply.status == 200 ? "" : std::to_string(reply.status);
    const cJSON *at = document.get();
    for (const char *key : {"paths", path, method, "responses", "200", "content", "application/json", "schema"})
        at = cJSON_GetObjectItemCaseSensitive(at, key);
    check(document.get(), at, reply.tree.get(), path, &faults);
    return faults;
}

json_tree api_document()
{
    return json_tree(parse_json_text(text_of(SOURCE_DIR "/docs/home-api.json").c_str()));
}

TEST(home_api, document_names_the_routes_of_the_table)
{
    std::string documented, routes;
    json_tree document = api_document();
    const cJSON *path = nullptr, *method = nullptr;
    cJSON_ArrayForEach(path, cJSON_GetObjectItem(document.get(), "paths"))
        cJSON_ArrayForEach(method, path) {
            std::string name = path->string, who = cJSON_GetStringValue(cJSON_GetObjectItem(method, "x-who"));
            size_t open = name.find('{');
            documented += std::string(method->string) + " " + name.substr(0, open) + (open == std::string::npos ? "" : "*") +
                          " " + who + "\n";
        }
    const std::map<u32, std::string> who = {
        {who_anybody, "anybody"}, {who_all, "any account"}, {who_adults, "parent or technician"}, {kind_parent, "parent"}};
    std::vector<std::string> lines;
    for (const web_route *one = web_routes; one->method; ++one) {
        std::string verb = one->method;
        std::transform(verb.begin(), verb.end(), verb.begin(), tolower);
        EXPECT_NE(documented.find(verb + " " + one->path + " " + who.at(one->who) + "\n"), std::string::npos)
            << verb << " " << one->path;
        lines.push_back(verb);
    }
    EXPECT_EQ(std::count(documented.begin(), documented.end(), '\n'), static_cast<std::ptrdiff_t>(lines.size()));
}

TEST_F(home_web, answers_as_documented)
{
    keep_history();
    begin();
    EXPECT_NE(ask("/api/v1/session").text.find("\"first_run\":true"), std::string::npos);
    set_password("Ada"); // while it runs
    web_reply reply = login("Ada");
    EXPECT_NE(reply.head.find("; Path=/; HttpOnly; SameSite=Strict; Max"), std::string::npos) << reply.head;
    EXPECT_NE(reply.head.find("frame-ancestors 'none'"), std::string::npos) << reply.head;
    json_tree document = api_document();
    for (const char *path : {"session", "status", "devices", "now", "timeline", "use", "alerts", "apps", "gaps", "export.json",
                             "changes", "counters", "accounts"}) {
        std::string whole = std::string("/api/v1/") + path;
        EXPECT_EQ(faults_of(document, whole.c_str(), "get", ask(whole + "?day=" + yesterday + "&from=" + yesterday, "", "Ada")),
                  "")
            << path;
    }
    std::string use = ask("/api/v1/use?by=class&from=" + yesterday, "", "Ada").text;
    EXPECT_NE(use.find("\"minutes\":20"), std::string::npos) << use;
    std::string csv = ask("/api/v1/export.csv?from=" + yesterday, "", "Ada").text;
    EXPECT_EQ(csv.find("\xEF\xBB\xBF"
                       "day,"),
              0u)
        << csv;
    EXPECT_NE(csv.find(yesterday + ",AA-BB-CC-DD-EE-01,\"Ben's tablet\",\"\",1001,"), std::string::npos) << csv;
    EXPECT_EQ(faults_of(document, "/api/v1/language", "put", write("PUT", "language", "{\"language\":\"de\"}", "Ada")), "");
    EXPECT_EQ(write("POST", "logout", "{}", "Ada").status, 200);
    EXPECT_EQ(ask("/api/v1/status", "", "Ada").code(), "not_logged_in");
}

TEST_F(home_web, turns_away_what_it_must)
{
    set_password("Ada");
    set_password("Tom", "--kind technician");
    begin(",\"web\":{\"hosts\":[\"box.example\"]}");
    login("Tom");
    std::string tom = token;
    login("Ada");
    const std::string put = " -X PUT -H 'Content-Type: application/json'", json = put + " -d '{\"language\":\"de\"}'",
                      own = " -H 'Origin: http://" + host + "'", by_token = " -H 'X-Appident-Token: " + token + "'";
    const struct {
        std::string path, options, code;
    } refused[] = {
        {"/api/v1/session", "-H 'Host: evil.example:8480'", "wrong_host"},
        {"/", "-H 'Host: 127.0.0.1:80'", "wrong_host"},
        {"/api/v1/language", json + by_token, "wrong_origin"},
        {"/api/v1/language", json + by_token + " -H 'Origin: http://evil.example:8480'", "wrong_origin"},
        {"/api/v1/language", json + own, "wrong_token"},
        {"/api/v1/language", json + own + " -H 'X-Appident-Token: " + tom + "'", "wrong_token"},
        {"/api/v1/language", own + by_token + " -X PUT -d language=de", "wrong_type"},
        {"/api/v1/language", own + by_token + put + " -d '[]'", "bad_request"},
        {"/api/v1/language", own + by_token + " -X PUT --data-binary @" HOME_PROGRAM, "too_large"},
        {"/api/v1/language", "", "wrong_method"},
        {"/api/v1/timeline?day=2026-02-30", "", "bad_request"},
        {"/api/v1/use?from=2026-02-02&to=2026-02-01", "", "bad_request"},
        {"/api/v1/limits/AA-BB-CC-DD-EE-99", "", "not_found"},
        {"/../home.db", "--path-as-is", "not_found"},
        {"/.hidden.js", "", "not_found"},
    };
    for (const auto &one : refused)
        EXPECT_EQ(ask(one.path, one.options, "Ada").code(), one.code) << one.path << one.options;
    EXPECT_EQ(ask("/api/v1/session", "-H 'Host: box.example'").status, 200);
    EXPECT_NE(ask("/metrics").text.find("appident_pushes_read_total"), std::string::npos);
    EXPECT_EQ(ask("/metrics", "-H 'X-Forwarded-For: 192.168.77.9'").code(), "forbidden");
    token = tom;
    EXPECT_EQ(write("DELETE", "accounts/Ada", "{}", "Tom").code(), "forbidden");
    // The sixth is not looked at, be it right; another address is.
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(login("Ada", "wrong horse").code(), "wrong_password");
    web_reply locked = login("Ada");
    EXPECT_EQ(locked.code(), "locked_out");
    EXPECT_NE(locked.head.find("Retry-After: 9"), std::string::npos) << locked.head; // of 900 seconds
    EXPECT_NE(output_of("curl -s --interface 127.0.0.2 -H 'Origin: http://" + host +
                        "' -H 'Content-Type: application/json' -d "
                        "'{\"name\":\"Ada\",\"password\":\"correct horse\"}' http://" +
                        host + "/api/v1/login")
                  .find("parent"),
              std::string::npos);
    // A body that grows without end.
    EXPECT_LT(ask("/api/v1/login", "-X POST -H 'Transfer-Encoding: chunked' --data-binary @" HOME_PROGRAM).status, 200);
    EXPECT_EQ(ask("/healthz").status, 200);
}

TEST_F(home_web, shows_a_child_its_own_devices_over_https)
{
    keep_history();
    set_password("Ada");
    set_password("Ben", "--kind child --person Ben");
    output_of("cd " + directory.path +
              " && openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=home -keyout key -out certificate 2>/dev/null");
    scheme = "https";
    begin(",\"web\":{\"certificate\":\"" + directory.file("certificate") + "\",\"key\":\"" + directory.file("key") + "\"}");
    EXPECT_NE(login("Ada").head.find("; Secure"), std::string::npos);
    EXPECT_EQ(write("PUT", std::string("devices/") + tablet, "{\"person\":\"Ben\"}", "Ada").status, 200);
    std::string parent = token;
    login("Ben");
    output_of("curl -sNk --max-time 60 -b " + directory.file("Ben") + " " + scheme + "://" + host + "/api/v1/events >" +
              directory.file("events") + " 2>/dev/null &");
    ASSERT_TRUE(comes_true([&] { return text_of(directory.file("events")).find("event: status") != std::string::npos; }));
    for (const char *path : {"devices", "timeline", "use", "alerts", "export.csv", "export.json"}) {
        std::string text = ask(std::string("/api/v1/") + path + "?day=" + yesterday + "&from=" + yesterday, "", "Ben").text;
        EXPECT_NE(text.find(tablet), std::string::npos) << path << text;
        EXPECT_EQ(text.find(phone), std::string::npos) << path << text;
    }
    EXPECT_EQ(ask(std::string("/api/v1/limits/") + phone, "", "Ben").code(), "not_found");
    for (const char *path : {"counters", "changes", "accounts"})
        EXPECT_EQ(ask(std::string("/api/v1/") + path, "", "Ben").code(), "forbidden");
    EXPECT_EQ(write("PUT", std::string("limits/") + tablet, "{\"limits\":[]}", "Ben").code(), "forbidden");
    token = parent;
    for (const char *device : {phone, tablet})
        EXPECT_EQ(write("PUT", std::string("devices/") + device, "{\"person\":\"Mia\"}", "Ada").status, 200);
    EXPECT_EQ(write("PUT", std::string("devices/") + tablet, "{\"person\":\"Ben\"}", "Ada").status, 200);
    ASSERT_TRUE(comes_true([&] { return text_of(directory.file("events")).find(tablet) != std::string::npos; }));
    EXPECT_EQ(text_of(directory.file("events")).find(phone), std::string::npos);
    EXPECT_EQ(write("DELETE", std::string("devices/") + phone, "{}", "Ada").status, 200);
    EXPECT_EQ(ask("/api/v1/export.json?from=" + yesterday, "", "Ada").text.find(phone), std::string::npos);
}

TEST_F(home_web, changes_what_the_daemon_keeps)
{
    write_settings();
    write_roster({{"tablet", tablet, "192.168.77.11", 1, 3, true}});
    write_catalogue({{video, "Video", 3, 0}, {chat, "Chat", 2, 0}, {game, "Game", 1, 0}}, 1);
    daemon = start_daemon(DAEMON_PATH);
    ASSERT_TRUE(comes_true(daemon_serves));
    set_password("Ada");
    host = std::string(lan_address) + ":8480"; // the daemon's LAN
    begin(",\"web\":{\"appidentctl\":\"" TOOL "\"}");
    EXPECT_EQ(output_of("curl -s http://127.0.0.1:8480/healthz"), "");
    login("Ada");
    std::string name = std::string("devices/") + tablet, limits = std::string("limits/") + tablet,
                payments = std::string("payments/") + tablet;
    ASSERT_TRUE(comes_true([&] { return ask("/api/v1/devices", "", "Ada").text.find("\"role\":1") != std::string::npos; }));
    json_tree document = api_document();
    EXPECT_EQ(faults_of(document, "/api/v1/devices/{mac}", "put", write("PUT", name, "{\"name\":\"Mias Tafel\"}", "Ada")), "");
    EXPECT_EQ(faults_of(document, "/api/v1/limits/{mac}", "put",
                        write("PUT", limits,
                              "{\"limits\":[{\"class\":2,\"minutes\":75},{\"class\":4,\"on\":true,\"apps\":[1003]}]}", "Ada")),
              "");
    EXPECT_EQ(write("PUT", limits, "{\"limits\":[{\"class\":1,\"on\":true,\"minutes\":0}]}", "Ada").code(), "bad_request");
    EXPECT_EQ(faults_of(document, "/api/v1/payments/{mac}", "put",
                        write("PUT", payments, "{\"payments\":{\"weixin\":false}}", "Ada")),
              "");
    EXPECT_EQ(faults_of(document, "/api/v1/limits/{mac}", "get", ask("/api/v1/" + limits, "", "Ada")), "");
    // The daemon has only just begun to count.
    std::string status = ask("/api/v1/status", "", "Ada").text;
    EXPECT_NE(status.find("\"counts_began\":[{\"device\":\"AA-BB-CC-DD-EE-01\",\"time\":"), std::string::npos) << status;
    std::string tool = std::string("APPIDENT_PLATFORM_SETTINGS=") + settings_path + " " TOOL " ";
    EXPECT_EQ(output_of(tool + "limits 'Mias Tafel'"), "CLASS  NAME              STATE  MINUTES  APPS\n"
                                                       "    1  games             off          0  -\n"
                                                       "    2  video and social  on          75  1001 Video\n"
                                                       "    3  everything else   off          0  -\n"
                                                       "    4  learning          on           0  1003 Game\n"
                                                       "    5  eye protection    off          0  -\n");
    EXPECT_NE(output_of(tool + "payments 'Mias Tafel' --json").find("\"enable\":true,\"weixin\":false,\"alipay\":true"),
              std::string::npos);
    std::string changes = ask("/api/v1/changes", "", "Ada").text;
    EXPECT_NE(
        changes.find("\"account\":\"Ada\",\"address\":\"192.168.77.1\",\"device\":\"AA-BB-CC-DD-EE-01\",\"what\":\"limits\","
                     "\"before\":\"none\",\"after\":\"video and social 75, learning\""),
        std::string::npos)
        << changes;
    kill(daemon, SIGSTOP); // as when it hangs
    bool told = false;     // with a few chances on a busy processor, seconds each
    for (int tries = 0; tries < 20 && !told; ++tries)
        told = ask("/api/v1/counters", "", "Ada").text.find("socket: nobody answers") != std::string::npos;
    EXPECT_TRUE(told);
    kill(daemon, SIGCONT);
    EXPECT_EQ(stop_daemon(daemon), status_after_sigterm);
    daemon = -1;
    EXPECT_EQ(write("PUT", limits, "{\"limits\":[{\"class\":2,\"minutes\":10}]}", "Ada").code(), "daemon_silent");
    EXPECT_EQ(write("PUT", name, "{\"name\":\"x\"}", "Ada").code(), "daemon_silent");
}

} // namespace

int main(int argc, char **argv)
{
    setenv("TZ", "UTC", 1);
    return run_tests_inside(argc, argv, {}, &why_not, [](const std::string &program) {
        bool made = make_private_tmp({program, DAEMON_PATH, HOME_PROGRAM, TOOL, SOURCE_DIR}) &&
                    make_lan(std::string(lan_address) + "/24") && system("ip link set lo up") == 0;
        return std::string(made ? "" : "the private network lacks something, see above");
    });
}
