// The spool file: the last pushes, for whoever comes later. At "spool_limit" bytes it becomes pushes.jsonl.1, in place of the
// one before, and begins anew, so that both together stay under twice the limit.
#ifndef PLATFORM_LINUX_PUSH_SPOOL_H
#define PLATFORM_LINUX_PUSH_SPOOL_H

#include <stddef.h>

// Appends the line (with its line feed) whole or not at all; what cannot be written is counted. The outlet's thread only.
void spool_line(const char *line, size_t length);

#endif
