// Keeps the neighbour table as the kernel's, and with it who is on line (presence.h): a thread of its own follows the kernel's
// notifications. Only neighbours on the LAN interface count.
#ifndef PLATFORM_LINUX_NEIGHBOURS_H
#define PLATFORM_LINUX_NEIGHBOURS_H

// Starts following; later calls do nothing. Any thread.
void neighbours_start();

#endif
