// Where packets come from: each kind of source is one row of a table, and runs until its end or until it is told to stop.
#ifndef FEED_SOURCE_H
#define FEED_SOURCE_H

#include "feed/classifier.h"
#include "feed/options.h"

#include <signal.h>

struct source_run {
    const feed_options &options;
    classifier &classify;
    const volatile sig_atomic_t &stop; // set by a signal
    // What the source itself counts; the classifier counts the rest.
    feed_counters &counts;
    // To be called by a live source once it is open, with the rights of the start: the feed's page is there from then on.
    std::function<void()> opened;
    // To be called about once in ten seconds: takes up a changed catalogue.
    std::function<void()> refresh;
};

struct source_kind {
    const char *name;
    const char *argument; // what stands behind the colon; null for nothing
    const char *help;
    // Gives packets and time to the classifier; a feed_exit. What went wrong is told on standard error.
    int (*run)(const std::string &argument, const source_run &run);
    // How this source's classifier differs from one that sees every packet.
    void (*adapt)(classifier_options *options);
};

int run_nflog_source(const std::string &argument, const source_run &run);
void adapt_to_nflog(classifier_options *options);

int run_interface_source(const std::string &name, const source_run &run);

int run_pcap_source(const std::string &path, const source_run &run);

#endif
