#include "tools/appidentctl/json_file.h"

#include <stdio.h>
#include <stdlib.h>

bool read_file(const std::string &path, std::string *text)
{
    FILE *file = path == "-" ? stdin : fopen(path.c_str(), "re");
    if (!file)
        return false;
    char piece[4096];
    for (size_t size = 0; (size = fread(piece, 1, sizeof(piece), file)) > 0;)
        text->append(piece, size);
    bool whole = !ferror(file);
    if (file != stdin)
        fclose(file);
    return whole;
}

json_tree read_json(const std::string &path)
{
    std::string text;
    return json_tree(read_file(path, &text) ? cJSON_Parse(text.c_str()) : nullptr);
}

std::string json_text(const cJSON *object, const char *key)
{
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItem(object, key));
    return text ? text : "";
}

double json_number(const cJSON *object, const char *key, double otherwise)
{
    const cJSON *item = cJSON_GetObjectItem(object, key);
    if (cJSON_IsNumber(item))
        return item->valuedouble;
    return cJSON_IsString(item) && item->valuestring[0] ? strtod(item->valuestring, nullptr) : otherwise;
}

void print_json(const cJSON *tree)
{
    heap_text text(cJSON_PrintUnformatted(tree));
    puts(text ? text.get() : "null");
}
