#include "platform/linux/lease_names.h"

#include "common/guards.h"
#include "common/mac_text.h"
#include "platform/linux/client/json_text.h"
#include "platform/linux/client/settings.h"
#include "platform/linux/lan_choice.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr size_t leases_limit = 1024 * 1024;
constexpr size_t line_room = 512;

// A lease as far as lines told of it; forms with several lines to a lease fill it bit by bit.
struct lease {
    unsigned char mac[6];
    char name[device_name_room];
    bool has_mac;
};

void take_name(lease *into, const char *name)
{
    char cut[device_name_room];
    copy_device_name(name, cut);
    // What a device says of itself may be anything.
    if (is_device_name(cut) && strcmp(cut, "*") != 0)
        memcpy(into->name, cut, sizeof(cut));
}

// Each reads a line and says whether it completes a lease.

// dnsmasq: "1700000000 aa:bb:cc:dd:ee:ff 192.168.1.20 tablet 01:aa:bb:cc:dd:ee:ff"; "*" where there is no name.
bool read_dnsmasq(char *line, lease *out)
{
    char *rest = nullptr;
    strtok_r(line, " ", &rest);
    const char *mac = strtok_r(nullptr, " ", &rest), *ip = strtok_r(nullptr, " ", &rest), *name = strtok_r(nullptr, " ", &rest);
    *out = {};
    out->has_mac = mac && read_mac_text(mac, out->mac);
    if (ip && name)
        take_name(out, name);
    return true;
}

// Kea: "192.168.1.20,aa:bb:cc:dd:ee:ff,client-id,lifetime,expire,subnet,0,0,tablet,0,..."
bool read_kea(char *line, lease *out)
{
    constexpr int mac_field = 1, name_field = 8;
    *out = {};
    for (int field = 0; line; ++field) {
        char *value = strsep(&line, ",");
        if (field == mac_field)
            out->has_mac = read_mac_text(value, out->mac);
        if (field == name_field)
            take_name(out, value);
    }
    return true;
}

// dhcpd: "lease 192.168.1.20 {", "hardware ethernet aa:bb:cc:dd:ee:ff;", "client-hostname \"tablet\";", "}"
bool read_dhcpd(char *line, lease *out)
{
    char value[line_room];
    if (strncmp(line, "lease ", 6) == 0)
        *out = {};
    else if (sscanf(line, " hardware ethernet %17[^;]", value) == 1)
        out->has_mac = read_mac_text(value, out->mac);
    else if (sscanf(line, " client-hostname \"%511[^\"]", value) == 1)
        take_name(out, value);
    return *line == '}';
}

struct lease_file {
    const char *path;            // null: the one that the settings name
    const char *after_interface; // where the LAN interface's name stands in the path: what comes after it; else null
    bool (*read_line)(char *line, lease *out);
    struct stat seen;
};
// The first file that names a device counts.
lease_file files[] = {
    {nullptr, nullptr, read_dnsmasq, {}},
    {"/var/lib/misc/dnsmasq.leases", nullptr, read_dnsmasq, {}},
    {"/tmp/dhcp.leases", nullptr, read_dnsmasq, {}},
    {"/var/lib/dnsmasq/dnsmasq.leases", nullptr, read_dnsmasq, {}},
    {"/etc/pihole/dhcp.leases", nullptr, read_dnsmasq, {}},
    {"/var/lib/NetworkManager/dnsmasq-", ".leases", read_dnsmasq, {}},
    {"/var/lib/kea/kea-leases4.csv", nullptr, read_kea, {}},
    {"/var/lib/dhcp/dhcpd.leases", nullptr, read_dhcpd, {}},
};

// Empty for a file that nobody has named.
void path_of(const lease_file &file, char (&out)[state_path_size])
{
    lan_choice lan = chosen_lan();
    snprintf(out, sizeof(out), "%s%s%s", file.path ? file.path : settings().leases, file.after_interface ? lan.interface : "",
             file.after_interface ? file.after_interface : "");
}

bool changed(lease_file *file)
{
    char path[state_path_size];
    path_of(*file, path);
    struct stat now = {};
    if (stat(path, &now) != 0)
        now = {};
    bool same = same_contents(now, file->seen);
    file->seen = now;
    return !same;
}

void read_file(const lease_file &file, lease_reader take)
{
    char path[state_path_size];
    path_of(file, path);
    text_file contents = read_text_file(path, leases_limit);
    char *rest = contents.text.get();
    lease one = {};
    while (rest && *rest) {
        char *line = strsep(&rest, "\n");
        if (strlen(line) < line_room && file.read_line(line, &one) && one.has_mac && *one.name)
            take(one.mac, one.name);
    }
}

} // namespace

bool read_leases(bool anew, lease_reader take)
{
    for (lease_file &file : files)
        anew |= changed(&file);
    if (!anew)
        return false;
    // From the last to the first, so that the first has the last word.
    for (size_t i = sizeof(files) / sizeof(files[0]); i-- > 0;)
        read_file(files[i], take);
    return true;
}
