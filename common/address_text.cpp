#include "common/address_text.h"

#include <arpa/inet.h>
#include <string.h>

namespace {

// "0." to "255.", padded with zeros to four characters, and their lengths.
struct byte_texts {
    char text[256][4];
    unsigned char length[256];
};

constexpr byte_texts make_byte_texts()
{
    byte_texts made = {};
    for (int value = 0; value < 256; value++) {
        unsigned char length = 0;
        if (value >= 100)
            made.text[value][length++] = static_cast<char>('0' + value / 100);
        if (value >= 10)
            made.text[value][length++] = static_cast<char>('0' + value / 10 % 10);
        made.text[value][length++] = static_cast<char>('0' + value % 10);
        made.text[value][length++] = '.';
        made.length[value] = length;
    }
    return made;
}
constexpr byte_texts texts = make_byte_texts();

// Reads a number of 0 to 255 without leading zeros and the character behind it. Null for anything else.
const char *read_byte(const char *text, char then, unsigned char *value)
{
    u32 first = static_cast<u32>(*text++) - '0';
    if (first > 9)
        return nullptr;
    u32 number = first;
    for (u32 digit = static_cast<u32>(*text) - '0'; digit <= 9; digit = static_cast<u32>(*++text) - '0') {
        number = number * 10 + digit;
        if (first == 0 || number > 255)
            return nullptr;
    }
    *value = static_cast<unsigned char>(number);
    return *text == then ? text + 1 : nullptr;
}

} // namespace

void write_address_text(const unsigned char *bytes, char *text)
{
    for (int i = 0; i < 4; i++) {
        memcpy(text, texts.text[bytes[i]], 4); // at most up to the 16th character
        text += texts.length[bytes[i]];
    }
    text[-1] = '\0';
}

u32 read_address_text(const char *text)
{
    unsigned char bytes[4];
    const char *rest = text;
    for (int i = 0; rest && i < 4; i++)
        rest = read_byte(rest, i < 3 ? '.' : '\0', &bytes[i]);
    in_addr address = {};
    if (rest)
        memcpy(&address, bytes, sizeof(address));
    else if (!inet_aton(text, &address)) // which also reads octal and hexadecimal numbers, and fewer of them
        address.s_addr = 0;
    return address.s_addr;
}
