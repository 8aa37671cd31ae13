// Configuration files as tests write and compare them.
#ifndef TESTS_KIT_CONFIG_FILES_H
#define TESTS_KIT_CONFIG_FILES_H

#include "tests/kit/household.h"
#include "tests/kit/waiting.h"

#include <algorithm>
#include <filesystem>

// JSON written with ' for " and @ for the tablet's MAC text.
inline std::string json(const std::string &short_hand)
{
    std::string text;
    for (char c : short_hand)
        text += c == '@' ? tablet.mac : std::string(1, c == '\'' ? '"' : c);
    return text;
}

inline std::string config_file(const std::string &mac = tablet.mac)
{
    return platform.config_dir + mac + ".config";
}

inline void store(const std::string &text)
{
    std::ofstream(config_file()) << text;
}

// "" when there is no file.
inline std::string stored()
{
    return text_of(config_file());
}

#endif
