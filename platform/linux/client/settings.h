// What the owner of the box may set: one small JSON file, read once. A missing file, a missing key or a value of the wrong kind
// gives the default, so that nothing needs to be set.
#ifndef PLATFORM_LINUX_CLIENT_SETTINGS_H
#define PLATFORM_LINUX_CLIENT_SETTINGS_H

#include "igd/igd_types.h"

#include <sys/types.h>

constexpr const char *settings_default_path = "/etc/appident/platform.json";
// Names another file; ignored in a set-uid process.
constexpr const char *settings_path_variable = "APPIDENT_PLATFORM_SETTINGS";

// Longest texts, so that every path made of them fits its buffer (a socket's holds 107 characters, a configuration path 255).
struct platform_settings {
    char lan_interface[16]; // "lan_interface": "auto", or an interface's name
    char state_dir[200];    // "state_dir": "/var/lib/appident"; roster.json, observed.json, catalogue.json, config/
    char runtime_dir[90];   // "runtime_dir": "/run/appident"; pushes.jsonl, pushes.sock, platform.counters
    bool has_socket_group;  // "socket_group": a group's name; none leaves the sockets with the daemon's own group
    gid_t socket_group;
    u32 spool_limit;     // "spool_limit": bytes of pushes.jsonl before it is rotated, 4096 at least
    char catalogue[200]; // "catalogue": the installed one, which the state directory's adds to
    int default_role;    // "default_role": of devices that nobody gave a role, 0 to 2
    u32 offline_after;   // "offline_after": minutes of silence, 1 to 1440; seconds here
    char leases[200];    // "leases": a file of leases in dnsmasq's form, beside those of the known DHCP servers; none
    bool unreadable;     // the file is there and makes no sense, or names an unknown group
};

// Any thread.
const platform_settings &settings();

constexpr int state_path_size = 256;
// state_dir or runtime_dir, "/" and the name.
void state_path(char (&out)[state_path_size], const char *name);
void runtime_path(char (&out)[state_path_size], const char *name);

#endif
