#include "feed/app_catalogue.h"

#include "feed/host_name.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdlib.h>

namespace {

constexpr uint32_t largest_id = 0xFFFF;
constexpr uint32_t largest_class = 255;
constexpr uint32_t largest_threshold_kb = 1000000;
constexpr size_t longest_app_name = 31;
constexpr size_t longest_line = 8192;

// Ids that mean something of their own to whoever reads the messages: app 8 and payments.
constexpr uint32_t reserved_ids[] = {8, 300, 301, 302, 303};

// Clouds, delivery networks and shared hosts: apps of everybody, so none of them may be an app. Names below them may.
constexpr const char *shared_hosts[] = {
    "amazonaws.com",
    "cloudfront.net",
    "awsglobalaccelerator.com",
    "akamai.net",
    "akamaized.net",
    "akamaiedge.net",
    "akamaihd.net",
    "akadns.net",
    "edgekey.net",
    "edgesuite.net",
    "cloudflare.com",
    "cloudflare.net",
    "cloudflare-ech.com",
    "fastly.net",
    "fastlylb.net",
    "azure.com",
    "azureedge.net",
    "azurewebsites.net",
    "windows.net",
    "trafficmanager.net",
    "msedge.net",
    "microsoft.com",
    "google.com",
    "googleapis.com",
    "gstatic.com",
    "googleusercontent.com",
    "1e100.net",
    "appspot.com",
    "firebaseio.com",
    "ggpht.com",
    "apple.com",
    "icloud.com",
    "llnwd.net",
    "edgecastcdn.net",
    "b-cdn.net",
    "cdn77.org",
    "myqcloud.com",
    "qcloud.com",
    "tencent-cloud.net",
    "aliyuncs.com",
    "alicdn.com",
    "kunlunca.com",
    "bytefcdn-oversea.com",
    "herokuapp.com",
    "github.io",
    "netlify.app",
    "vercel.app",
    "workers.dev",
    "pages.dev",
    "jsdelivr.net",
    "unpkg.com",
    "co.uk",
    "com.cn",
    "com.br",
    "co.jp",
    "co.kr",
    "com.au",
    "com.tr",
    "amazon.com",
    "qq.com",
};

bool read_number(const std::string &text, uint32_t least, uint32_t most, uint32_t *out)
{
    char *end = nullptr;
    unsigned long value = strtoul(text.c_str(), &end, 10);
    if (text.empty() || text.size() > 9 || text[0] < '0' || text[0] > '9' || *end || value < least || value > most)
        return false;
    *out = static_cast<uint32_t>(value);
    return true;
}

bool is_shared(const std::string &host)
{
    return std::find(std::begin(shared_hosts), std::end(shared_hosts), host) != std::end(shared_hosts);
}

// A host of two labels or more; of "first.*.rest" both sides count.
std::string host_in(const std::string &text)
{
    size_t star = text.find(".*.");
    if (star != std::string::npos) {
        std::string first = host_name_of({reinterpret_cast<const uint8_t *>(text.data()), star});
        std::string rest = host_in(text.substr(star + 3));
        return first.empty() || rest.empty() || first.find('.') != std::string::npos ? std::string() : first + ".*." + rest;
    }
    std::string host = host_name_of({reinterpret_cast<const uint8_t *>(text.data()), text.size()});
    return host.find('.') == std::string::npos ? std::string() : host;
}

bool begins_with(const std::string &text, const char *prefix)
{
    return text.rfind(prefix, 0) == 0;
}

// The rules of one line, kept apart until the whole line makes sense.
struct line_rules {
    std::vector<std::pair<std::string, app_rule>> hosts, ndpi_names;
    std::vector<ip_network> networks;
};

// What is wrong with the rule; empty when nothing is.
std::string read_rule(const std::string &word, uint32_t id, line_rules *out)
{
    size_t colon = word.find(':');
    std::string value = colon == std::string::npos ? word : word.substr(colon + 1);
    if (begins_with(word, "net:")) {
        ip_network network;
        if (!read_network(value, &network) || network.prefix < 8)
            return "'" + value + "' is no network";
        out->networks.push_back(network);
    } else if (begins_with(word, "ndpi:") || begins_with(word, "call:")) {
        if (value.empty())
            return "a name is missing behind '" + word + "'";
        out->ndpi_names.push_back({value, {id, word[0] == 'c', false}});
    } else if (colon == std::string::npos || begins_with(word, "not:") || begins_with(word, "also:")) {
        std::string host = host_in(value);
        if (host.empty())
            return "'" + value + "' is no host name";
        bool excludes = begins_with(word, "not:");
        if (!excludes && is_shared(host))
            return "'" + host + "' is shared by many apps";
        out->hosts.push_back({host, {excludes ? 0 : id, false, begins_with(word, "also:")}});
    } else {
        return "'" + word + "' is no kind of rule";
    }
    return {};
}

// The five words before the rules; what is wrong with them, or empty.
std::string read_entry(const std::vector<std::string> &words, const app_catalogue &known, app_entry *out)
{
    if (words.size() < 5)
        return "too few words";
    uint32_t id = 0;
    if (!read_number(words[0], 1, largest_id, &id) || std::count(std::begin(reserved_ids), std::end(reserved_ids), id))
        return "'" + words[0] + "' is no app id";
    const app_entry *old = known.find(id);
    *out = old ? *old : app_entry{};
    out->id = id;
    const std::string &name = words[2];
    uint32_t start = out->start_bytes / 1000, go_on = out->continue_bytes / 1000;
    if (!(old && words[1] == "-") && !read_number(words[1], 1, largest_class, &out->app_class))
        return "'" + words[1] + "' is no class";
    if (!(old && name == "-")) {
        if (name.size() > longest_app_name || name.find_first_of("\"\\") != std::string::npos ||
            std::any_of(name.begin(), name.end(), [](char c) { return c < 0x21 || c > 0x7E; }))
            return "'" + name + "' is no app name";
        out->name = name;
    }
    if (!(old && words[3] == "-") && !read_number(words[3], 1, largest_threshold_kb, &start))
        return "'" + words[3] + "' is no number of kB";
    if (!(old && words[4] == "-") && !read_number(words[4], 1, largest_threshold_kb, &go_on))
        return "'" + words[4] + "' is no number of kB";
    out->start_bytes = start * 1000;
    out->continue_bytes = go_on * 1000;
    return {};
}

std::string take_line(const std::string &line, app_catalogue *into)
{
    std::istringstream stream(line.substr(0, line.find('#')));
    std::vector<std::string> words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    if (words.empty())
        return {};
    app_entry entry;
    std::string complaint = read_entry(words, *into, &entry);
    line_rules rules;
    for (size_t i = 5; i < words.size() && complaint.empty(); i++)
        complaint = read_rule(words[i], entry.id, &rules);
    if (!complaint.empty())
        return complaint;
    into->apps[entry.id] = entry;
    for (const auto &host : rules.hosts) {
        into->hosts[host.first] = host.second;
        into->has_starred_hosts |= host.first.find('*') != std::string::npos;
    }
    for (const auto &name : rules.ndpi_names)
        into->ndpi_names[name.first] = name.second;
    for (const ip_network &network : rules.networks) {
        auto same = [&](const auto &other) { return other.first.base == network.base && other.first.prefix == network.prefix; };
        auto &all = into->networks;
        all.erase(std::remove_if(all.begin(), all.end(), same), all.end());
        auto place =
            std::find_if(all.begin(), all.end(), [&](const auto &other) { return other.first.prefix < network.prefix; });
        all.insert(place, {network, entry.id});
    }
    return {};
}

} // namespace

const app_entry *app_catalogue::find(uint32_t id) const
{
    auto found = apps.find(id);
    return found == apps.end() ? nullptr : &found->second;
}

const app_rule *app_catalogue::by_host(const std::string &host) const
{
    std::string_view rest = host;
    std::string starred = host.substr(0, host.find('.')) + ".*.";
    size_t first = starred.size();
    while (!rest.empty()) {
        auto found = hosts.end();
        if (has_starred_hosts && rest.size() + first <= host.size() + 2)
            found = hosts.find(starred.replace(first, std::string::npos, rest));
        if (found == hosts.end())
            found = hosts.find(rest);
        if (found != hosts.end())
            return &found->second;
        size_t dot = rest.find('.');
        rest = dot == std::string_view::npos ? std::string_view() : rest.substr(dot + 1);
    }
    return nullptr;
}

const app_rule *app_catalogue::by_ndpi_name(const std::string &name) const
{
    auto found = ndpi_names.find(name);
    return found == ndpi_names.end() ? nullptr : &found->second;
}

uint32_t app_catalogue::by_address(const ip_address &address) const
{
    for (const auto &network : networks)
        if (contains(network.first, address))
            return network.second;
    return 0;
}

void read_apps_text(const std::string &name, const std::string &text, app_catalogue *into, std::vector<std::string> *complaints)
{
    std::istringstream lines(text);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        number++;
        std::string complaint = line.size() > longest_line ? "the line is too long" : take_line(line, into);
        if (!complaint.empty())
            complaints->push_back(name + ":" + std::to_string(number) + ": " + complaint);
    }
}

bool read_apps(const std::string &path, app_catalogue *into, std::vector<std::string> *complaints)
{
    std::ifstream file(path);
    if (!file)
        return false; // with the errno of open()
    std::stringstream text;
    text << file.rdbuf();
    read_apps_text(path, text.str(), into, complaints);
    return true;
}
