// Who listens to the pushes as they happen: clients of the stream socket runtime_dir/pushes.sock. They get whole lines from the
// moment they connect and have nothing to say themselves. One that does not keep up is cut off and counted. All of it on the
// outlet's thread but for the opening.
#ifndef PLATFORM_LINUX_PUSH_SUBSCRIBERS_H
#define PLATFORM_LINUX_PUSH_SUBSCRIBERS_H

#include <stddef.h>

void open_subscribers();
// Takes in new subscribers and lets go those who left, until wake_fd is readable.
void wait_for_subscribers(int wake_fd);
// Never waits.
void send_to_subscribers(const char *line, size_t length);

#endif
