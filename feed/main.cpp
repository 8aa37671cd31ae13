// appident-feed: tells which device of the LAN uses which app, from the traffic that the router forwards.
#include "feed/app_files.h"
#include "feed/feed_page.h"
#include "feed/message_sender.h"
#include "feed/printing.h"
#include "feed/source.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

namespace {

volatile sig_atomic_t stop_wanted = 0;

void on_signal(int)
{
    stop_wanted = 1;
}

void see_everything(classifier_options *) {}

constexpr source_kind source_kinds[] = {
    {"nflog", nullptr, "the traffic that this router forwards (the default); needs nft", run_nflog_source, adapt_to_nflog},
    {"interface", "IF", "the packets that pass an interface, such as a bridge", run_interface_source, see_everything},
    {"pcap", "FILE", "a capture file, pcap or pcapng", run_pcap_source, see_everything},
};

std::string sources_text()
{
    std::string text;
    for (const source_kind &kind : source_kinds) {
        std::string name = std::string("  ") + kind.name + (kind.argument ? std::string(":") + kind.argument : "");
        name.resize(std::max<size_t>(name.size() + 2, 26), ' ');
        text += name + kind.help + "\n";
    }
    return text;
}

const source_kind *find_source(const std::string &source, std::string *argument)
{
    size_t colon = source.find(':');
    *argument = colon == std::string::npos ? "" : source.substr(colon + 1);
    for (const source_kind &kind : source_kinds)
        if (source.substr(0, colon) == kind.name && (kind.argument != nullptr) == !argument->empty())
            return &kind;
    return nullptr;
}

int usage_error(const std::string &what)
{
    fprintf(stderr, "appident-feed: %s\nTry 'appident-feed --help'.\n", what.c_str());
    return feed_usage;
}

uint64_t uptime_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec);
}

void print(const std::string &line)
{
    fwrite(line.data(), 1, line.size(), stdout);
}

void tell_counters(const feed_counters &counts)
{
    constexpr counter_about texts[] = {FEED_COUNTERS(COUNTER_ABOUT)};
    for (unsigned int i = 0; i < feed_counter_end; i++)
        if (texts[i].kind != counter_kind::state)
            fprintf(stderr, "  %-20s %12llu  %s%s\n", texts[i].name, static_cast<unsigned long long>(counts[i]),
                    texts[i].kind == counter_kind::part ? "of them " : "", texts[i].meaning);
}

// Sends the hit, and counts how that went. What cannot be told is counted by the classifier.
void send_hit(message_sender *sender, const hit &found, feed_counters *counts)
{
    switch (sender->send(found)) {
    case send_outcome::sent:
        (*counts)[feed_messages_sent]++;
        break;
    case send_outcome::failed:
        (*counts)[feed_messages_failed]++;
        break;
    case send_outcome::not_told:
        break;
    }
}

int run(const feed_options &options, const source_kind &kind, const std::string &argument)
{
    const uint64_t started = uptime_seconds();
    app_files files(options.apps, options.own_apps);
    app_catalogue apps;
    if (!files.read(&apps)) {
        fprintf(stderr, "appident-feed: %s: no catalogue of apps\n", options.apps.c_str());
        return feed_no_input;
    }
    classifier_options chosen;
    chosen.lan = options.lan;
    chosen.guess_ipv6_device = !options.lan_has_ipv6;
    chosen.use_dpi = !options.no_dpi;
    chosen.most_flows = options.most_flows;
    kind.adapt(&chosen);

    message_sender sender;
    if (!options.dry && !sender.open()) {
        fprintf(stderr, "appident-feed: netfilter's netlink: %s\n", strerror(errno));
        return feed_failed;
    }
    feed_counters own_counts{};
    classifier *told = nullptr;
    auto on_hit = [&](const hit &found) {
        hit shown = found;
        if (options.as.family != 0)
            shown.device = options.as;
        if (!options.dry)
            send_hit(&sender, shown, &own_counts);
        if (!options.flows && (options.dry || options.json))
            print((options.json ? hit_json : hit_line)(shown, *told->catalogue().find(found.app)));
    };
    auto on_flow = [&](const flow_report &found) {
        const app_entry *app = found.app != 0 ? told->catalogue().find(found.app) : nullptr;
        if (options.flows)
            print((options.json ? flow_json : flow_line)(found, app));
        else if (options.verbose)
            fputs(flow_line(found, app).c_str(), stderr);
    };
    bool wants_flows = options.flows || options.verbose;
    classifier classify(chosen, std::move(apps), on_hit, wants_flows ? flow_sink(on_flow) : flow_sink());
    told = &classify;
    if (options.verbose)
        fprintf(stderr, "appident-feed: %zu apps, %s\n", classify.catalogue().apps.size(), dpi_engine::version().c_str());
    auto all_counts = [&] {
        feed_counters counts = classify.counters();
        for (unsigned int i = 0; i < feed_counter_end; i++)
            counts[i] += own_counts[i];
        counts[feed_started_uptime] = started;
        counts[feed_lines_skipped] = files.skipped();
        return counts;
    };
    // Who only looks, or cannot, takes no place of a feed that tells.
    auto opened = [&] {
        if (!options.dry)
            feed_page_open(options.counters);
        feed_page_write(all_counts());
    };
    auto refresh = [&] {
        app_catalogue fresh;
        if (files.have_changed() && files.read(&fresh))
            classify.set_catalogue(std::move(fresh));
        feed_page_write(all_counts());
        fflush(stdout);
    };
    int status = kind.run(argument, {options, classify, stop_wanted, own_counts, opened, refresh});
    feed_counters counts = all_counts();
    feed_page_write(counts);
    fprintf(stderr, "appident-feed: %s", summary_line(counts).c_str());
    if (options.verbose)
        tell_counters(counts);
    return fflush(stdout) == 0 ? status : feed_failed;
}

} // namespace

int main(int argc, char **argv)
{
    feed_options options;
    if (std::string wrong = read_options(argc, argv, &options); !wrong.empty())
        return usage_error(wrong);
    if (options.help) {
        print(help_text(sources_text()));
        return feed_done;
    }
    if (options.version) {
        printf("appident-feed %s, %s\n", FEED_VERSION, dpi_engine::version().c_str());
        return feed_done;
    }
    std::string argument;
    const source_kind *kind = find_source(options.source, &argument);
    if (!kind)
        return usage_error("'" + options.source + "' is no source");
    struct sigaction action {};
    action.sa_handler = on_signal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    return run(options, *kind, argument);
}
