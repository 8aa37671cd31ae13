#include "feed/host_name.h"

std::string host_name_of(byte_view bytes)
{
    if (bytes.size > 0 && bytes.data[bytes.size - 1] == '.')
        bytes.size--;
    if (bytes.size == 0 || bytes.size > longest_host_name)
        return {};
    std::string name(bytes.size, 0);
    bool has_letter = false;
    size_t label = 0;
    for (size_t i = 0; i < bytes.size; i++) {
        auto letter = static_cast<char>(bytes.data[i]);
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
        bool is_letter = letter >= 'a' && letter <= 'z';
        if (!is_letter && !(letter >= '0' && letter <= '9') && letter != '-' && letter != '_' && letter != '.')
            return {};
        has_letter |= is_letter;
        label = letter == '.' ? 0 : label + 1;
        if (label > 63 || (letter == '.' && (i == 0 || name[i - 1] == '.')))
            return {};
        name[i] = letter;
    }
    return has_letter ? name : std::string();
}
