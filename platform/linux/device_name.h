// Names of devices: UTF-8, at most 32 bytes, which is what a push's alias has room for.
#ifndef PLATFORM_LINUX_DEVICE_NAME_H
#define PLATFORM_LINUX_DEVICE_NAME_H

#include <stddef.h>

constexpr size_t device_name_room = 33;

// Cut between characters, not within one.
void copy_device_name(const char *from, char (&out)[device_name_room]);
// Valid UTF-8 without control characters that fits; not empty.
bool is_device_name(const char *text);
// What a device without a name is called: "device 5E-12".
void write_nameless(const unsigned char *mac, char (&out)[device_name_room]);

#endif
