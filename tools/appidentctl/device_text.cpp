#include "tools/appidentctl/device_text.h"

#include <ctype.h>
#include <string.h>

std::string device_text(const std::string &mac)
{
    // Digits between separators, told by the length of the whole: 17 characters, 14, or 12 without separators.
    size_t group = mac.size() == 17 ? 2 : mac.size() == 14 ? 4 : mac.size() == 12 ? 12 : 0;
    if (!group)
        return "";
    std::string digits;
    for (size_t i = 0; i < mac.size(); i++) {
        bool separator = i % (group + 1) == group;
        if (separator ? mac[i] != mac[group] || !strchr(":-.", mac[i]) : !isxdigit(static_cast<unsigned char>(mac[i])))
            return "";
        if (!separator)
            digits += static_cast<char>(toupper(static_cast<unsigned char>(mac[i])));
    }
    std::string text;
    for (size_t i = 0; i < digits.size(); i += 2)
        text += (i ? "-" : "") + digits.substr(i, 2);
    return text;
}
