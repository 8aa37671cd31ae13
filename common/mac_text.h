// MAC addresses as text, "AA-BB-CC-DD-EE-FF": the one writer and the one reader. Any thread.
#ifndef COMMON_MAC_TEXT_H
#define COMMON_MAC_TEXT_H

#include <string.h>

// A MAC text is 17 characters and a terminator.
constexpr int mac_text_size = 18;

inline void write_mac_text(const unsigned char *mac, char (&text)[mac_text_size])
{
    constexpr char digits[] = "0123456789ABCDEF";
    for (int i = 0; i < 6; ++i) {
        text[3 * i] = digits[mac[i] >> 4];
        text[3 * i + 1] = digits[mac[i] & 15];
        text[3 * i + 2] = '-';
    }
    text[mac_text_size - 1] = '\0';
}

inline int hex_value(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    digit = static_cast<char>(digit | 0x20);
    return digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
}

// Six bytes from a text with dashes or colons, in either case. False for anything else; mac is undefined then.
inline bool read_mac_text(const char *text, unsigned char (&mac)[6])
{
    if (strnlen(text, mac_text_size) != mac_text_size - 1)
        return false;
    for (int i = 0; i < 6; ++i) {
        int high = hex_value(text[3 * i]);
        int low = hex_value(text[3 * i + 1]);
        char separator = text[3 * i + 2];
        if (high < 0 || low < 0 || (i < 5 && separator != '-' && separator != ':'))
            return false;
        mac[i] = static_cast<unsigned char>(high << 4 | low);
    }
    return true;
}

#endif
