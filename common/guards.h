// Scope guards: who holds one owns the thing, and it is released on every way out of the scope.
#ifndef COMMON_GUARDS_H
#define COMMON_GUARDS_H

#include <cjson/cJSON.h>
#include <memory>
#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

// For std::unique_ptr: releases the thing with a function of the library that it came from.
template <auto release> struct released_by {
    template <typename type> void operator()(type *thing) const { release(thing); }
};

// A malloc'd text or record.
template <typename type> using heap_ptr = std::unique_ptr<type, released_by<free>>;
using heap_text = heap_ptr<char>;

// A cJSON tree that nothing else owns.
using json_tree = std::unique_ptr<cJSON, released_by<cJSON_Delete>>;

class mutex_guard {
public:
    explicit mutex_guard(pthread_mutex_t &mutex) : held(mutex) { pthread_mutex_lock(&held); }
    ~mutex_guard() { pthread_mutex_unlock(&held); }
    mutex_guard(const mutex_guard &) = delete;
    mutex_guard &operator=(const mutex_guard &) = delete;

private:
    pthread_mutex_t &held;
};

// An open descriptor, -1 for none.
class fd_guard {
public:
    explicit fd_guard(int descriptor) : fd(descriptor) {}
    ~fd_guard()
    {
        if (fd >= 0)
            close(fd);
    }
    fd_guard(const fd_guard &) = delete;
    fd_guard &operator=(const fd_guard &) = delete;
    int get() const { return fd; }
    int release()
    {
        int given = fd;
        fd = -1;
        return given;
    }

private:
    int fd;
};

#endif
