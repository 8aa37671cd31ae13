// Asks the daemon each minute what is in use (request 9), and the platform library for the devices (request 1000, which older
// ones do not know). Nobody need answer.
#ifndef HOME_DAEMON_TRUTH_H
#define HOME_DAEMON_TRUTH_H

#include "home/joining.h"

#include <map>

struct daemon_truth {
    history *of = nullptr;
    std::string socket;                           // of requests
    bool answers = false;                         // the last request was answered
    int64_t answered = 0;                         // epoch second of the last answer
    bool names_known = true;                      // request 1000 is answered, as far as is known
    int64_t long_gone = 90 * 86400;               // seconds unseen; longer, a device without role and given name is not listed
    std::vector<use_now> now;                     // in use as of `answered`; of devices with a role
    std::string lan_interface;                    // as the daemon chose it, "" while that is not known
    std::map<std::string, int64_t> on_line_since; // by MAC, of those on line; epoch seconds
};

// Asks now. Waits a third of a second for each answer at most.
void ask_daemon(daemon_truth *truth, int64_t time);

#endif
