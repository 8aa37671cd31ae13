// MAC texts as people write them and as the daemon keys its devices.
#ifndef APPIDENTCTL_DEVICE_TEXT_H
#define APPIDENTCTL_DEVICE_TEXT_H

#include <string>

// "aa:bb:cc:dd:ee:ff", "aabb.ccdd.eeff", "AA-BB-CC-DD-EE-FF" or "aabbccddeeff" as "AA-BB-CC-DD-EE-FF"; empty when it is no MAC.
std::string device_text(const std::string &mac);

#endif
