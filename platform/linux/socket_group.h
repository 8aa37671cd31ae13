// Who may use the sockets and read the pushes: the group that the settings name.
#ifndef PLATFORM_LINUX_SOCKET_GROUP_H
#define PLATFORM_LINUX_SOCKET_GROUP_H

// Gives a file, by an open descriptor or its path, to that group. Only root and the group's members have the right to do so;
// without it the file stays with the daemon's own group, which is told once on standard error. Any thread.
void give_to_socket_group(int fd);
void give_to_socket_group(const char *path);

#endif
