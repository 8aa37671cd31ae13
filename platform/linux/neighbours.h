// Keeps the neighbour table as the kernel's: a thread of its own follows the kernel's notifications, and a look-up that misses
// asks the kernel once. Only neighbours on the LAN interface count.
#ifndef PLATFORM_LINUX_NEIGHBOURS_H
#define PLATFORM_LINUX_NEIGHBOURS_H

// Starts following; later calls do nothing. Any thread.
void neighbours_start();

#endif
