// catalogue: the apps that are known, with their numbers and classes.
#include "tools/appidentctl/commands.h"
#include "tools/appidentctl/exit_codes.h"
#include "tools/appidentctl/household.h"
#include "tools/appidentctl/json_file.h"
#include "tools/appidentctl/table.h"

#include <stdio.h>

int run_catalogue(const call &what)
{
    u32 wanted = 0;
    if (const char *words = what.line.value[option_class])
        if (!(wanted = class_from_words(what.line, words)))
            return exit_usage;
    household known = read_household(what.where);
    json_tree root(cJSON_CreateObject());
    cJSON *list = cJSON_AddArrayToObject(root.get(), "apps");
    text_table table = {{{"APP", true}, {"NAME", false, true}, {"CLASS"}}, {}};
    for (const auto &[id, app] : known.apps) {
        u32 limit_class = limit_class_of(app.small_class);
        if (wanted && limit_class != wanted)
            continue;
        cJSON *entry = cJSON_CreateObject();
        cJSON_AddNumberToObject(entry, "app_id", id);
        cJSON_AddStringToObject(entry, "app", app.name.c_str());
        cJSON_AddNumberToObject(entry, "class_type", limit_class);
        cJSON_AddStringToObject(entry, "class", class_name(limit_class));
        cJSON_AddItemToArray(list, entry);
        table.rows.push_back({std::to_string(id), app.name, class_name(limit_class)});
    }
    if (given(what.line, option_json)) {
        print_json(root.get());
        return exit_done;
    }
    if (known.apps.empty()) {
        fprintf(stderr, "appidentctl: no catalogue at %s or %s\n", what.where.installed_catalogue.c_str(),
                what.where.catalogue.c_str());
        return exit_usage;
    }
    print_table(table);
    return exit_done;
}
