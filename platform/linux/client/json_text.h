// JSON from outside, read with bounds: no file, however large or deep, costs more memory or stack than stated here.
#ifndef PLATFORM_LINUX_CLIENT_JSON_TEXT_H
#define PLATFORM_LINUX_CLIENT_JSON_TEXT_H

#include "common/guards.h"

#include <stddef.h>
#include <sys/stat.h>

constexpr size_t json_text_limit = 1024 * 1024;
// The parser calls itself once a level; its own limit of 1000 is too much for a thread with a small stack.
constexpr int json_depth_limit = 32;
// A value costs 64 bytes and more, whatever its text: a megabyte of "0," would cost 47.
constexpr size_t json_values_limit = 32768;

enum file_outcome {
    file_read,
    file_missing,
    file_refused, // no regular file, too large, no right, or written to while it was read
};

struct text_file {
    file_outcome outcome;
    heap_text text; // NUL-terminated, null unless read
    struct stat about;
};

text_file read_text_file(const char *path, size_t limit);

enum json_outcome {
    json_read,
    json_refused, // too long, too deep, too many values, or no JSON
    json_no_memory,
};

// A tree that the caller deletes, or null; *outcome tells why.
cJSON *parse_json_text(const char *text, size_t limit = json_text_limit, size_t values = json_values_limit,
                       json_outcome *outcome = nullptr);

// Whether two looks at a path met the same contents.
bool same_contents(const struct stat &one, const struct stat &other);

#endif
