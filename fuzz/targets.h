// The daemon's doors, each as a function that takes any bytes: what stands outside may say anything, and the daemon must go on.
//
// A run that returns has left no lock held and the device list sound; anything else aborts.
#ifndef FUZZ_TARGETS_H
#define FUZZ_TARGETS_H

#include <string>
#include <vector>

struct fuzz_target {
    const char *name;
    void (*take)(const std::string &bytes);
    std::vector<std::string> (*seeds)(); // the project's own messages
};
extern const std::vector<fuzz_target> fuzz_targets;

// Null when there is none of that name.
inline const fuzz_target *find_fuzz_target(const std::string &name)
{
    for (const fuzz_target &target : fuzz_targets)
        if (target.name == name)
            return &target;
    return nullptr;
}

#endif
