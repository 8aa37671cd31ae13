#include "platform/linux/text_builder.h"

#include <stdarg.h>
#include <stdio.h>
#include <utility>

static bool reserve(text_builder *builder, size_t needed)
{
    if (needed <= builder->room)
        return true;
    size_t room = needed * 2;
    char *grown = static_cast<char *>(realloc(builder->text.get(), room));
    if (!grown) {
        builder->failed = true;
        return false;
    }
    static_cast<void>(builder->text.release());
    builder->text.reset(grown);
    builder->room = room;
    return true;
}

void append_text(text_builder *builder, const char *format, ...)
{
    va_list values, again;
    va_start(values, format);
    va_copy(again, values);
    int length = vsnprintf(nullptr, 0, format, values);
    if (length >= 0 && reserve(builder, builder->length + static_cast<size_t>(length) + 1)) {
        vsnprintf(builder->text.get() + builder->length, static_cast<size_t>(length) + 1, format, again);
        builder->length += static_cast<size_t>(length);
    }
    va_end(again);
    va_end(values);
}

heap_text take_text(text_builder *builder)
{
    heap_text text(builder->failed ? nullptr : builder->text.release());
    *builder = {};
    return text;
}
