// The apps that the feed can tell: one a line in apps.conf, with class, thresholds and rules.
//
//   ID CLASS NAME START CONTINUE [RULE...]
//
// START and CONTINUE are kB within 30 and within 10 seconds. A '-' for CLASS, NAME, START or CONTINUE keeps what an earlier
// line for the same ID said. A RULE is one of
//   example.com        a host and all below it; the longest one that fits wins
//   first.*.example.com  a host below example.com whose first label this is
//   also:example.com   a host whose contents other sites and apps embed, too: it continues a use, but starts none
//   not:example.com    a host below one of the above that is none of that app's use
//   ndpi:NAME          a protocol by nDPI's name for it
//   call:NAME          likewise, and the traffic is a call
//   net:ADDRESS/BITS   a network of which every address serves this app
// A later line for the same ID adds rules; a later rule for the same host, name or network replaces the earlier.
#ifndef FEED_APP_CATALOGUE_H
#define FEED_APP_CATALOGUE_H

#include "feed/address.h"

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

struct app_entry {
    uint32_t id;
    uint32_t app_class;
    std::string name;
    uint32_t start_bytes;    // within the last three intervals
    uint32_t continue_bytes; // within one interval
};

struct app_rule {
    uint32_t id; // 0: no app, and nothing else may say otherwise
    bool is_call;
    bool is_embedded; // told as the app's, but starts no use of it
};

struct app_catalogue {
    std::unordered_map<uint32_t, app_entry> apps;
    std::map<std::string, app_rule, std::less<>> hosts;
    bool has_starred_hosts = false;
    std::map<std::string, app_rule, std::less<>> ndpi_names;
    std::vector<std::pair<ip_network, uint32_t>> networks; // the longest prefixes first

    const app_entry *find(uint32_t id) const;
    // Null when no rule fits.
    const app_rule *by_host(const std::string &host) const;
    const app_rule *by_ndpi_name(const std::string &name) const;
    // 0 when no network fits.
    uint32_t by_address(const ip_address &address) const;
};

// Adds a file's lines. A line that makes no sense is skipped and told as "FILE:LINE: what is wrong"; false, with errno, when
// the file cannot be read.
bool read_apps(const std::string &path, app_catalogue *into, std::vector<std::string> *complaints);
// Likewise from a text; `name` stands for the file's.
void read_apps_text(const std::string &name, const std::string &text, app_catalogue *into,
                    std::vector<std::string> *complaints);

#endif
