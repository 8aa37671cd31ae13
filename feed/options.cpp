#include "feed/options.h"

#include <errno.h>
#include <getopt.h>
#include <stdlib.h>

namespace {

bool read_count(const char *text, unsigned long least, unsigned long most, unsigned long *out)
{
    char *end = nullptr;
    errno = 0;
    unsigned long value = strtoul(text, &end, 10);
    if (*text < '0' || *text > '9' || *end || errno || value < least || value > most)
        return false;
    *out = value;
    return true;
}

bool set_source(const char *value, feed_options *out)
{
    out->source = value;
    return !out->source.empty();
}

bool set_lan(const char *value, feed_options *out)
{
    std::string text = value;
    out->lan_has_ipv6 = text.find(':') != std::string::npos;
    return read_lan(text, &out->lan);
}

bool set_as(const char *value, feed_options *out)
{
    return read_address(value, &out->as);
}

bool set_apps(const char *value, feed_options *out)
{
    out->apps = value;
    return true;
}

bool set_own_apps(const char *value, feed_options *out)
{
    out->own_apps = value;
    return true;
}

bool set_counters(const char *value, feed_options *out)
{
    out->counters = value;
    return true;
}

bool set_speed(const char *value, feed_options *out)
{
    char *end = nullptr;
    out->speed = strtod(value, &end);
    return end != value && !*end && out->speed > 0 && out->speed <= 1e6;
}

bool set_loops(const char *value, feed_options *out)
{
    return read_count(value, 1, 1000000, &out->loops);
}

bool set_most_flows(const char *value, feed_options *out)
{
    return read_count(value, 16, 1u << 20, &out->most_flows);
}

template <bool feed_options::*field> bool set(const char *, feed_options *out)
{
    return out->*field = true;
}

bool set_flows(const char *, feed_options *out)
{
    return out->flows = out->dry = true;
}

struct known_option {
    const char *name;
    char letter;          // 0 for none
    const char *argument; // null for none
    const char *help;
    bool (*take)(const char *value, feed_options *out);
};

constexpr known_option known[] = {
    {"source", 's', "KIND[:WHAT]", "where packets come from, see below", set_source},
    {"lan", 'l', "private|CIDR", "what the LAN is: 'private' (the private address ranges), networks, or both, with commas",
     set_lan},
    {"dry", 'd', nullptr, "print what would be sent, and send nothing", set<&feed_options::dry>},
    {"json", 'j', nullptr, "print one JSON object a line", set<&feed_options::json>},
    {"flows", 'f', nullptr, "print one line for each connection instead; implies --dry", set_flows},
    {"as", 'a', "ADDRESS", "tell all use as that of the device with this address", set_as},
    {"true-time", 't', nullptr, "keep gaps in a capture that are longer than a minute", set<&feed_options::true_time>},
    {"loops", 'n', "N", "play a capture N times", set_loops},
    {"speed", 'x', "N", "play a capture N times as fast as life; without it, as fast as it can be read", set_speed},
    {"apps", 0, "FILE", "the catalogue of apps, instead of the installed one", set_apps},
    {"own-apps", 0, "FILE", "what is added to it, instead of /etc/appident/apps.conf", set_own_apps},
    {"counters", 0, "FILE", "the page of counters, instead of /var/run/appident-feed/feed.counters", set_counters},
    {"no-dpi", 0, nullptr, "do without nDPI", set<&feed_options::no_dpi>},
    {"max-flows", 0, "N", "remember so many connections at once (16384)", set_most_flows},
    {"verbose", 'v', nullptr, "say more on standard error: each connection as it ends, and all counters",
     set<&feed_options::verbose>},
    {"help", 'h', nullptr, "print this text", set<&feed_options::help>},
    {"version", 'V', nullptr, "print the version", set<&feed_options::version>},
};
constexpr int known_count = sizeof(known) / sizeof(known[0]);
constexpr int option_base = 256;

} // namespace

std::string read_options(int argc, char **argv, feed_options *out)
{
    read_lan("private", &out->lan);
    option table[known_count + 1] = {};
    std::string letters = ":";
    for (int i = 0; i < known_count; i++) {
        table[i] = {known[i].name, known[i].argument ? required_argument : no_argument, nullptr, option_base + i};
        if (known[i].letter)
            letters += std::string(1, known[i].letter) + (known[i].argument ? ":" : "");
    }
    opterr = 0;
    for (int found = 0; (found = getopt_long(argc, argv, letters.c_str(), table, nullptr)) != -1;) {
        const known_option *chosen = found >= option_base ? &known[found - option_base] : nullptr;
        for (const known_option &one : known)
            if (found < option_base && found == one.letter)
                chosen = &one;
        if (found == ':')
            return std::string("'") + argv[optind - 1] + "' needs an argument";
        if (!chosen)
            return std::string("'") + argv[optind - 1] + "' is no option";
        if (!chosen->take(optarg, out))
            return std::string("'") + optarg + "' is no " + chosen->argument + " for --" + chosen->name;
    }
    return optind < argc ? std::string("'") + argv[optind] + "' is one word too many" : std::string();
}

std::string help_text(const std::string &sources)
{
    std::string text = "usage: appident-feed [--source KIND[:WHAT]] [OPTION...]\n"
                       "Watches the traffic between the LAN and outside, and tells which device uses which app.\n\n";
    constexpr size_t column = 26;
    for (const known_option &one : known) {
        std::string line = one.letter ? std::string("  -") + one.letter + ", " : "      ";
        line += std::string("--") + one.name + (one.argument ? std::string(" ") + one.argument : "");
        if (line.size() + 2 > column)
            line += "\n" + std::string(column, ' ');
        else
            line.resize(column, ' ');
        text += line + one.help + "\n";
    }
    return text + "\nSources:\n" + sources +
           "\nExit status: 0 done, 1 the source failed, 2 wrong command line, 3 a file or an interface cannot be read.\n";
}
