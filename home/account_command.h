// --password: makes an account, or gives it another password, also while the program runs.
#ifndef HOME_ACCOUNT_COMMAND_H
#define HOME_ACCOUNT_COMMAND_H

#include "home/home_settings.h"

struct account_wanted {
    std::string name;
    std::string kind;   // "": as it is; "parent" for a new one
    std::string person; // "": as it is
};
// Asks for the password. False after saying what is wrong.
bool set_password(const home_settings &settings, const account_wanted &wanted);

#endif
