// A text of fixed capacity that grows by whole pieces only.
#ifndef APPIDENT_MODEL_BOUNDED_TEXT_H
#define APPIDENT_MODEL_BOUNDED_TEXT_H

#include <stddef.h>
#include <string.h>

struct bounded_text {
    char *text; // always terminated
    size_t size;
    size_t used;
    bool full; // a piece did not fit; nothing is added any more
};

inline bounded_text make_bounded_text(char *buffer, size_t size)
{
    buffer[0] = '\0';
    return {buffer, size, 0, false};
}

// False, with nothing added, when the piece does not fit or an earlier one did not.
inline bool append_whole(bounded_text &list, const char *piece)
{
    size_t length = strlen(piece);
    if (list.full || length >= list.size - list.used) {
        list.full = true;
        return false;
    }
    memcpy(list.text + list.used, piece, length + 1);
    list.used += length;
    return true;
}

inline void drop_last_character(bounded_text &list)
{
    if (list.used > 0)
        list.text[--list.used] = '\0';
}

#endif
