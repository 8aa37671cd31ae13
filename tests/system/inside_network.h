// The main function of tests that need a private network and a /tmp of their own.
#ifndef TESTS_SYSTEM_INSIDE_NETWORK_H
#define TESTS_SYSTEM_INSIDE_NETWORK_H

#include "simulator/world/private_network.h"

#include <gtest/gtest.h>

// Runs the tests in a network of our own, where `prepare` has set up what they need; `why_not` says what this machine lacks for
// it, and the tests then skip. The program is started anew inside by the words of `wrapper`, where there are any.
inline int run_tests_inside(int argc, char **argv, const std::vector<std::string> &wrapper, std::string *why_not,
                            std::string (*prepare)(const std::string &program))
{
    std::vector<char *> as_given(argv, argv + argc + 1); // the next line takes its own words out
    testing::InitGoogleTest(&argc, argv);
    if (!testing::GTEST_FLAG(list_tests))
        *why_not = inside_private_network() ? prepare(argv[0]) : enter_private_network(as_given.data(), wrapper);
    return RUN_ALL_TESTS();
}

#endif
