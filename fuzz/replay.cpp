// Runs a target on its seeds, on every cut and every changed byte of them, and on the inputs that once were findings. Needs no
// fuzzing engine, so it stands in every build's tests; an emulated processor takes some of the bytes.
//
// usage: fuzz_replay TARGET [FILE...]     or     fuzz_replay --write-seeds DIRECTORY
#include "fuzz/targets.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdio.h>

namespace {

void write_seeds(const std::filesystem::path &directory)
{
    for (const fuzz_target &target : fuzz_targets) {
        int number = 0;
        std::filesystem::create_directories(directory / target.name);
        for (const std::string &seed : target.seeds())
            std::ofstream(directory / target.name / ("seed-" + std::to_string(number++))) << seed;
    }
}

void play_around(const fuzz_target &target, const std::string &seed)
{
    target.take(seed);
    for (size_t at = 0; at < seed.size(); at += REPLAY_STEP) {
        target.take(seed.substr(0, at));
        std::string changed = seed;
        for (char mask : {'\x01', '\x80', '\xFF', seed[at]}) { // the last makes it a zero
            changed[at] = static_cast<char>(seed[at] ^ mask);
            target.take(changed);
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 3 && std::string(argv[1]) == "--write-seeds") {
        write_seeds(argv[2]);
        return 0;
    }
    const fuzz_target *target = argc > 1 ? find_fuzz_target(argv[1]) : nullptr;
    if (!target)
        return 2;
    for (const std::string &seed : target->seeds())
        play_around(*target, seed);
    for (int i = 2; i < argc; i++) {
        std::ifstream file(argv[i], std::ios::binary);
        target->take({std::istreambuf_iterator<char>(file), {}});
    }
    return 0;
}
