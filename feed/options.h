// The command line: one table of options, of which reading and help are made.
#ifndef FEED_OPTIONS_H
#define FEED_OPTIONS_H

#include "feed/address.h"
#include "feed/feed_counters.h"

enum feed_exit {
    feed_done = 0,
    feed_failed = 1,   // the source or the daemon's side ended in an error
    feed_usage = 2,    // the command line makes no sense
    feed_no_input = 3, // a file or an interface cannot be read
};

struct feed_options {
    std::string source = "nflog"; // KIND or KIND:ARGUMENT
    std::vector<ip_network> lan;
    bool lan_has_ipv6 = false; // beyond what "private" says
    ip_address as;             // family 0: devices keep their addresses
    std::string apps;          // empty: the installed catalogue
    std::string own_apps = "/etc/appident/apps.conf";
    std::string counters = feed_counters_path;
    double speed = 0; // times as fast as life; 0: as fast as it can be read
    unsigned long loops = 1;
    unsigned long most_flows = 16384;
    bool true_time = false;
    bool no_dpi = false;
    bool dry = false;
    bool json = false;
    bool flows = false;
    bool verbose = false;
    bool help = false;
    bool version = false;
};

// What is wrong, or empty.
std::string read_options(int argc, char **argv, feed_options *out);
// `sources` describes the kinds of sources, a line each.
std::string help_text(const std::string &sources);

#endif
