#include "platform/linux/device_name.h"

#include <stdio.h>
#include <string.h>

namespace {

constexpr int not_a_character = -1;

bool continues(char byte)
{
    return (byte & 0xC0) == 0x80;
}

// Bytes of the character at `text`; not_a_character for a control character, a surrogate, a longer form than needed, or half of
// one.
int character_length(const char *text)
{
    static constexpr struct {
        unsigned char mask, mark;
        int length;
        unsigned least;
    } forms[] = {{0x80, 0x00, 1, 0x20}, {0xE0, 0xC0, 2, 0xA0}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};
    unsigned char lead = static_cast<unsigned char>(*text);
    for (const auto &form : forms) {
        if ((lead & form.mask) != form.mark)
            continue;
        unsigned point = lead & static_cast<unsigned char>(~form.mask);
        for (int i = 1; i < form.length; ++i) {
            if (!continues(text[i]))
                return not_a_character;
            point = point << 6 | (static_cast<unsigned char>(text[i]) & 0x3F);
        }
        // Among the separators of lines and the marks that reorder text are some that would break a table.
        bool breaks_lines =
            point == 0x2028 || point == 0x2029 || (point >= 0x202A && point <= 0x202E) || (point >= 0x2066 && point <= 0x2069);
        bool allowed = point >= form.least && point != 0x7F && point <= 0x10FFFF && (point < 0xD800 || point > 0xDFFF);
        return allowed && !breaks_lines ? form.length : not_a_character;
    }
    return not_a_character;
}

} // namespace

void copy_device_name(const char *from, char (&out)[device_name_room])
{
    size_t length = strnlen(from, device_name_room);
    if (length == device_name_room)
        for (--length; length > 0 && continues(from[length]);)
            --length;
    memcpy(out, from, length);
    out[length] = 0;
}

bool is_device_name(const char *text)
{
    if (!*text || strnlen(text, device_name_room) == device_name_room)
        return false;
    while (*text) {
        int length = character_length(text);
        if (length == not_a_character)
            return false;
        text += length;
    }
    return true;
}

void write_nameless(const unsigned char *mac, char (&out)[device_name_room])
{
    snprintf(out, sizeof(out), "device %02X-%02X", mac[4], mac[5]);
}
