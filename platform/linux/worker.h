// Threads of the library.
#ifndef PLATFORM_LINUX_WORKER_H
#define PLATFORM_LINUX_WORKER_H

// Starts a thread that lives as long as the process, with all signals blocked: they are the daemon's main thread's. False when
// the system has none to give.
bool start_worker(void *(*body)(void *));

#endif
