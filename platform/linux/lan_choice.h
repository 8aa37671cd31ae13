// Which interface is the LAN: the one that the settings name, else ("auto") br-lan with a private IPv4 address, else the bridge
// or interface that has such an address and no default route, else br-lan without one. Of several, those that lead to hardware
// come first, bridges before others; one that comes up in the first half hour takes the place of a lesser one.
#ifndef PLATFORM_LINUX_LAN_CHOICE_H
#define PLATFORM_LINUX_LAN_CHOICE_H

struct lan_choice {
    char interface[16]; // empty while there is none
    char why[96];       // a short sentence, without a full stop
};

// Any thread.
lan_choice chosen_lan();
// Chooses when there is no interface yet, when the chosen one is gone, and again at first; each new outcome is told once on
// standard error. Asks the kernel, so not for a busy path. True when there is an interface now.
bool look_for_lan();

#endif
