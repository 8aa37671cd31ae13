#include "platform/linux/text_builder.h"

#include <stdarg.h>
#include <stdio.h>
#include <utility>

namespace {

constexpr size_t least_capacity = 128;

bool reserve(text_builder *builder, size_t needed)
{
    size_t capacity = needed * 2 + least_capacity;
    char *grown = static_cast<char *>(realloc(builder->text.get(), capacity));
    if (!grown) {
        builder->failed = true;
        return false;
    }
    static_cast<void>(builder->text.release());
    builder->text.reset(grown);
    builder->capacity = capacity;
    return true;
}

} // namespace

void append_text(text_builder *builder, const char *format, ...)
{
    va_list values, again;
    va_start(values, format);
    va_copy(again, values);
    size_t left = builder->capacity - builder->length;
    int length = vsnprintf(left ? builder->text.get() + builder->length : nullptr, left, format, values);
    size_t grown = builder->length + static_cast<size_t>(length < 0 ? 0 : length);
    if (length >= 0 && grown >= builder->capacity && reserve(builder, grown + 1))
        vsnprintf(builder->text.get() + builder->length, static_cast<size_t>(length) + 1, format, again);
    if (length < 0)
        builder->failed = true;
    else if (!builder->failed)
        builder->length = grown;
    va_end(again);
    va_end(values);
}

void append_json_text(text_builder *builder, const char *text)
{
    append_text(builder, "\"");
    for (; *text; ++text) {
        if (*text == '"' || *text == '\\')
            append_text(builder, "\\%c", *text);
        else if (static_cast<unsigned char>(*text) < ' ')
            append_text(builder, "\\u%04x", static_cast<unsigned>(*text));
        else
            append_text(builder, "%c", *text);
    }
    append_text(builder, "\"");
}

heap_text take_text(text_builder *builder)
{
    heap_text text(builder->failed ? nullptr : builder->text.release());
    *builder = {};
    return text;
}
