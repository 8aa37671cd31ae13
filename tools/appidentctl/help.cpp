// The help, for people and for programs, made from the tables of commands and options.
#include "tools/appidentctl/command_line.h"
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/json_file.h"

#include <algorithm>
#include <stdio.h>

namespace {

// What stands behind a command's name.
constexpr const char *operand_words[] = {"", "[DEVICE]", "DEVICE", "[COMMAND]", ""};

std::string option_words(const command_option &one)
{
    const option_about &entry = about_option(one.id);
    const char *value = value_word(entry.value);
    return std::string("--") + entry.name + (value ? std::string(" ") + value : "");
}

void print_options(const std::vector<command_option> &list)
{
    size_t width = 0;
    for (const command_option &one : list)
        width = std::max(width, option_words(one).size());
    for (const command_option &one : list)
        printf("  %-*s  %s\n", static_cast<int>(width), option_words(one).c_str(), one.help);
}

void print_text(const command *about)
{
    if (about) {
        const char *operand = operand_words[about->takes];
        printf("Usage: appidentctl %s%s%s%s\n%s.\n\n", about->name, *operand ? " " : "", operand,
               about->options.empty() ? "" : " [OPTION]...", about->summary);
        if (!about->options.empty()) {
            print_options(about->options);
            putchar('\n');
        }
    } else {
        puts("Usage: appidentctl COMMAND [OPTION]...\nAsks the appident daemon on this box.\n");
        for (const command &one : all_commands())
            if (one.takes != any_words)
                printf("  %-9s  %s\n", one.name, one.summary);
        puts("\nOptions of every command:");
    }
    print_options(common_options());
    puts("\nA DEVICE is its name, its IP address, or its MAC in any common form; an APP or a CLASS its name or number.");
    if (!about)
        puts("'appidentctl help COMMAND' tells a command's options.\n"
             "Exit code: 0 done, 1 refused, 2 usage, 3 daemon or history not reachable; doctor: 4 warning, 5 fault.");
}

cJSON *options_json(const std::vector<command_option> &list)
{
    cJSON *all = cJSON_CreateArray();
    for (const command_option &one : list) {
        const option_about &entry = about_option(one.id);
        const char *value = value_word(entry.value);
        cJSON *option = cJSON_CreateObject();
        cJSON_AddStringToObject(option, "option", (std::string("--") + entry.name).c_str());
        cJSON_AddItemToObject(option, "value", value ? cJSON_CreateString(value) : cJSON_CreateNull());
        cJSON_AddStringToObject(option, "help", one.help);
        cJSON_AddItemToArray(all, option);
    }
    return all;
}

// One command, or all of them.
void print_as_json(const command *about)
{
    json_tree root(cJSON_CreateObject());
    cJSON *commands = cJSON_AddArrayToObject(root.get(), "commands");
    for (const command &one : all_commands()) {
        if (about ? &one != about : one.takes == any_words)
            continue;
        cJSON *object = cJSON_CreateObject();
        cJSON_AddStringToObject(object, "command", one.name);
        cJSON_AddStringToObject(object, "operand", operand_words[one.takes]);
        cJSON_AddStringToObject(object, "help", one.summary);
        cJSON_AddItemToObject(object, "options", options_json(one.options));
        cJSON_AddItemToArray(commands, object);
    }
    cJSON_AddItemToObject(root.get(), "options", options_json(common_options()));
    print_json(root.get());
}

} // namespace

void print_help(const command *about, bool as_json)
{
    (as_json ? print_as_json : print_text)(about);
}

int run_help(const call &what)
{
    const command *about = what.line.operands.empty() ? nullptr : find_command(what.line.operands[0]);
    if (!about && !what.line.operands.empty())
        return usage_error({}, "'%s' is no command", what.line.operands[0].c_str());
    print_help(about, given(what.line, option_json));
    return exit_done;
}
