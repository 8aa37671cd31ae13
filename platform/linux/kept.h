// Things that outlive main: the library's threads use them until the very end of the process.
#ifndef PLATFORM_LINUX_KEPT_H
#define PLATFORM_LINUX_KEPT_H

// Holds a value that is never destroyed.
template <typename type> union kept {
    constexpr kept() : value() {}
    ~kept() {}
    kept(const kept &) = delete;
    kept &operator=(const kept &) = delete;
    type value;
};

#endif
