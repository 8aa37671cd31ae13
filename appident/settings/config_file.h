// The per-device configuration file: where it is, and how it is read, merged and replaced.
//
// A file is replaced whole (written to a second file, flushed, renamed over it), so a reader finds the old or the new text.
// Whoever reads a file to write it back holds the lock in between, so that no other change is lost. Trees are the caller's. All
// return 0 on success, -1 on failure.
#ifndef APPIDENT_SETTINGS_CONFIG_FILE_H
#define APPIDENT_SETTINGS_CONFIG_FILE_H

#include "common/guards.h"
#include "igd/igd_types.h"

struct config_path {
    char text[256];
};
// False when the platform has no directory, the MAC text is missing, empty or holds "/", or the path does not fit.
bool make_config_path(const char *mac_str, config_path *path);
// The stored "device" equals the MAC text.
bool config_is_of(const cJSON *root, const char *mac_str);
// Writes the text in place of the file. After any interruption the file holds the old or the new text. -1 when a step up to the
// rename failed.
int write_config_file(const char *path, const char *text);

// The parsed file, null on every failure. Does not check "device".
int load_config(const char *mac_str, cJSON **config_root);
// Merges the limits of a text that holds "device" and "data" into the existing file, in one write.
int update_config(const char *mac_str, const char *config, const char *path);
// The first limit object of that class in a "data" list, null for none.
cJSON *stored_limit_of_class(const cJSON *limits, u32 wanted);
// Stores the text as the whole file and has the platform commit its parameters.
int replace_config(const char *mac_str, const char *config);

#endif
