// Removes a test program's directory when nobody writes to it any more.
#ifndef TESTS_KIT_LEFTOVERS_H
#define TESTS_KIT_LEFTOVERS_H

#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

// Goes on in a child process, and returns there. The threads of the platform library write until their process has ended, so
// the parent waits for that, removes the directory and ends as the child did.
inline void leave_nothing_in(const std::string &directory)
{
    pid_t child = fork();
    if (child == 0)
        return;
    int status = 1;
    waitpid(child, &status, 0);
    std::filesystem::remove_all(directory);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

#endif
