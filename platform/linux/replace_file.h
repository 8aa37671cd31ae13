// Writing a file whole or not at all.
#ifndef PLATFORM_LINUX_REPLACE_FILE_H
#define PLATFORM_LINUX_REPLACE_FILE_H

// Written beside the old one, flushed, renamed over it; a replaced file keeps its mode and, as far as we have the right, its
// owner. False when any of it fails, and the old one stays.
bool replace_file(const char *path, const char *text);

#endif
