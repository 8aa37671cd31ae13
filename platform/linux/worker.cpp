#include "platform/linux/worker.h"

#include <pthread.h>
#include <signal.h>

bool start_worker(void *(*body)(void *))
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    bool started = pthread_create(&thread, nullptr, body, nullptr) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (started)
        pthread_detach(thread);
    return started;
}
