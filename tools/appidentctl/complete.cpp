// complete: what may stand where the last of the given words is being typed, a candidate a line. The shell's completion calls
// it; it picks those that begin as the word does. Ends with exit_refused where names of files are wanted.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/household.h"
#include "tools/appidentctl/table.h"
#include "tools/appidentctl/time_text.h"

#include <stdio.h>

namespace {

const option_about *option_of(const command *about, const std::string &word)
{
    auto search = [&](const std::vector<command_option> &list) -> const option_about * {
        for (const command_option &one : list)
            if (word == std::string("--") + about_option(one.id).name)
                return &about_option(one.id);
        return nullptr;
    };
    const option_about *found = about ? search(about->options) : nullptr;
    return found ? found : search(common_options());
}

void print_options(const std::vector<command_option> &list)
{
    for (const command_option &one : list)
        printf("--%s\n", about_option(one.id).name);
}

void print_devices(const places &where)
{
    household known = read_household(where);
    for (const known_device &one : known.devices) {
        if (!one.name.empty())
            puts(printable(one.name).c_str());
        puts(one.mac.c_str());
    }
}

int print_values(const places &where, value_kind kind)
{
    switch (kind) {
    case value_path:
        return exit_refused;
    case value_device:
    case value_devices:
        print_devices(where);
        break;
    case value_app:
    case value_apps:
        for (const auto &one : read_household(where).apps)
            puts(printable(one.second.name).c_str());
        break;
    case value_by:
        puts("app\nclass");
        break;
    case value_class:
        for (const limit_class &one : limit_classes)
            puts(one.name);
        break;
    case value_role:
        puts("0\n1\n2");
        break;
    case value_switches:
        for (const char *name : {"enable", "weixin", "alipay", "qqpay", "applepay"})
            printf("%s=on\n%s=off\n", name, name);
        break;
    case value_day:
        for (int before = 0; before < 7; before++)
            puts(date_text(time(nullptr), -before).c_str());
        break;
    case value_kind_of_push:
    case value_minutes:
    case value_seconds:
    case value_text:
    case no_value:
        break;
    }
    return exit_done;
}

} // namespace

int run_complete(const call &what)
{
    const std::vector<std::string> &words = what.line.operands;
    const command *about = nullptr;
    const option_about *open = nullptr; // the option whose value the last word is
    for (size_t i = 0; i + 1 < words.size(); i++) {
        bool value = open && open->value != no_value;
        open = value ? nullptr : option_of(about, words[i]);
        if (!value && !open && !about)
            about = find_command(words[i]);
    }
    if (open && open->value != no_value)
        return print_values(what.where, open->value);
    if (!about) {
        for (const command &one : all_commands())
            if (one.takes != any_words)
                puts(one.name);
    } else if (about->takes == maybe_command) {
        for (const command &one : all_commands())
            if (one.takes != any_words)
                puts(one.name);
        return exit_done;
    } else {
        if (about->takes == one_device || about->takes == maybe_device)
            print_devices(what.where);
        print_options(about->options);
    }
    print_options(common_options());
    return exit_done;
}
