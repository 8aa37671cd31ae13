// device: shows one device, or changes its name and role.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/daemon_call.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/json_file.h"
#include "tools/appidentctl/operand.h"
#include "tools/appidentctl/table.h"
#include "tools/appidentctl/time_text.h"

#include "platform/linux/client/request_protocol.h"

#include <stdio.h>
#include <unistd.h>

namespace {

constexpr u32 most_role = 2;

void print_device(const call &what, const household &known, const std::string &mac)
{
    known_device unknown;
    const known_device *found = find_device(known, mac);
    const known_device &one = found ? *found : unknown;
    if (given(what.line, option_json)) {
        json_tree root(cJSON_CreateObject());
        cJSON_AddStringToObject(root.get(), "mac", mac.c_str());
        cJSON_AddStringToObject(root.get(), "device", device_name(known, mac).c_str());
        cJSON_AddStringToObject(root.get(), "address", one.address.c_str());
        cJSON_AddNumberToObject(root.get(), "role", one.role);
        cJSON_AddStringToObject(root.get(), "role_name", role_name(one.role));
        cJSON_AddBoolToObject(root.get(), "on_line", one.on_line);
        cJSON_AddNumberToObject(root.get(), "on_line_since", static_cast<double>(one.on_line_since));
        cJSON_AddBoolToObject(root.get(), "away", one.away);
        cJSON_AddBoolToObject(root.get(), "private_mac", one.private_mac);
        print_json(root.get());
        return;
    }
    text_table table = {{{""}, {"", false, true}}, {}};
    table.rows.push_back({"name", device_name(known, mac)});
    table.rows.push_back({"MAC", mac + (one.private_mac ? " (private address: switch it off for this network)" : "")});
    table.rows.push_back({"address", one.address.empty() ? "-" : one.address});
    table.rows.push_back({"role", std::to_string(one.role) + ", " + role_name(one.role)});
    table.rows.push_back({"on line", !one.on_line             ? "no"
                                     : one.away               ? "yes, but silent"
                                     : one.on_line_since == 0 ? "yes"
                                                              : "since " + time_text(one.on_line_since)});
    print_table(table);
}

// Role 0 deletes the device's settings; a person must say that this is meant.
bool may_stop_watching(const call &what, const household &known, const std::string &mac)
{
    const known_device *found = find_device(known, mac);
    if (given(what.line, option_yes) || !found || found->role == 0)
        return true;
    fprintf(stderr, "With role 0 the limits and payment switches of %s are deleted.\n",
            printable(device_name(known, mac)).c_str());
    if (!isatty(STDIN_FILENO)) {
        fputs("appidentctl: nothing was changed; say --yes if this is meant\n", stderr);
        return false;
    }
    fputs("Type yes if this is meant: ", stderr);
    char word[8] = "";
    bool meant = fgets(word, sizeof(word), stdin) && std::string(word) == "yes\n";
    if (!meant)
        fputs("Nothing was changed.\n", stderr);
    return meant;
}

} // namespace

int run_device(const call &what)
{
    household known = read_household(what.where);
    std::string mac = operand_device(what, known);
    if (mac.empty())
        return exit_usage;
    const char *name = what.line.value[option_name], *role_words = what.line.value[option_role];
    if (!name && !role_words) {
        print_device(what, known, mac);
        return exit_done;
    }
    json_tree change(cJSON_CreateObject());
    cJSON_AddStringToObject(change.get(), "mac", mac.c_str());
    if (name)
        cJSON_AddStringToObject(change.get(), "name", name);
    u32 role = 0;
    if (role_words) {
        if (!read_number(role_words, 0, most_role, &role))
            return usage_error(what.line, "--role %s is none of 0, 1 and 2", role_words);
        if (role == 0 && !may_stop_watching(what, known, mac))
            return exit_refused;
        cJSON_AddNumberToObject(change.get(), "role", role);
    }
    heap_text text(cJSON_PrintUnformatted(change.get()));
    client_request request = {};
    request.id = request_change_device;
    request.text = text.get();
    client_answer answer = {};
    int code = ask(what.where, request, &answer);
    if (code == exit_refused)
        fputs("appidentctl: refused: is the name longer than 32 bytes, or does this platform library keep no roster?\n",
              stderr);
    if (code == exit_done)
        print_device(what, read_household(what.where), mac);
    return code;
}
