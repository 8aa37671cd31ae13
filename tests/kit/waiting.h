// Waits for conditions, and reads what was written meanwhile.
#ifndef TESTS_KIT_WAITING_H
#define TESTS_KIT_WAITING_H

#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

template <typename condition> bool comes_true(int seconds, condition holds)
{
    // What has been seen once counts: a second look may come when it is gone again. A look may take long.
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    for (; std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
        if (holds())
            return true;
    }
    return false;
}
template <typename condition> bool comes_true(condition holds)
{
    return comes_true(60, holds);
}

// "" when there is no such file.
inline std::string text_of(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

#endif
