// Making the directories that the library keeps its files in.
#ifndef PLATFORM_LINUX_DIRECTORIES_H
#define PLATFORM_LINUX_DIRECTORIES_H

#include <sys/types.h>

// Makes the directory and what is missing above it (those with mode 0755). False when it is not there afterwards.
bool make_directory(const char *path, mode_t mode);

#endif
