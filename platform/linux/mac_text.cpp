#include "platform/linux/mac_text.h"

#include <string.h>

void write_mac_text(const unsigned char *mac, char (&out)[mac_text_room])
{
    static constexpr char digits[] = "0123456789ABCDEF";
    for (int i = 0; i < 6; ++i) {
        out[3 * i] = digits[mac[i] >> 4];
        out[3 * i + 1] = digits[mac[i] & 15];
        out[3 * i + 2] = '-';
    }
    out[mac_text_room - 1] = 0;
}

static int value_of(char digit)
{
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    digit = static_cast<char>(digit | 0x20);
    return digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
}

bool read_mac_text(const char *text, unsigned char *mac)
{
    if (strnlen(text, mac_text_room) != mac_text_room - 1)
        return false;
    for (int i = 0; i < 6; ++i) {
        int high = value_of(text[3 * i]), low = value_of(text[3 * i + 1]);
        char then = text[3 * i + 2];
        if (high < 0 || low < 0 || (i < 5 && then != '-' && then != ':'))
            return false;
        mac[i] = static_cast<unsigned char>(high << 4 | low);
    }
    return true;
}
