#include "tools/appidentctl/device_text.h"

#include "common/mac_text.h"

std::string device_text(const std::string &mac)
{
    // Digits between separators, told by the length of the whole: 17 characters, 14, or 12 without separators.
    size_t group = mac.size() == 17 ? 2 : mac.size() == 14 ? 4 : mac.size() == 12 ? 12 : 0;
    if (!group)
        return "";
    std::string pairs; // "aa-bb-cc-dd-ee-ff", not yet known to be hexadecimal
    size_t digits = 0;
    for (size_t i = 0; i < mac.size(); i++) {
        bool separator = i % (group + 1) == group;
        if (separator && (mac[i] != mac[group] || !strchr(":-.", mac[i])))
            return "";
        if (separator)
            continue;
        if (digits > 0 && digits % 2 == 0)
            pairs += '-';
        pairs += mac[i];
        digits++;
    }
    unsigned char bytes[6];
    if (!read_mac_text(pairs.c_str(), bytes))
        return "";
    char text[mac_text_size];
    write_mac_text(bytes, text);
    return text;
}
