// Files and members of JSON, as the tool reads them.
#ifndef APPIDENTCTL_JSON_FILE_H
#define APPIDENTCTL_JSON_FILE_H

#include "common/guards.h"

#include <string>

// The whole file; false when it cannot be read, with the reason in errno. "-" is standard input.
bool read_file(const std::string &path, std::string *text);
// A parsed tree, or null.
json_tree read_json(const std::string &path);
// A member's text, or "" when it is missing or no text.
std::string json_text(const cJSON *object, const char *key);
// A member's number, or `otherwise`; a number within a text counts, as pushes carry them so.
double json_number(const cJSON *object, const char *key, double otherwise);
// Prints the tree as one line on standard output.
void print_json(const cJSON *tree);

#endif
