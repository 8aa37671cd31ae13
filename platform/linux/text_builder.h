// A growing text. After a failed allocation it stays empty-handed: take() gives null.
#ifndef PLATFORM_LINUX_TEXT_BUILDER_H
#define PLATFORM_LINUX_TEXT_BUILDER_H

#include "common/guards.h"

#include <stddef.h>

struct text_builder {
    heap_text text;
    size_t length;
    size_t room;
    bool failed;
};

void append_text(text_builder *builder, const char *format, ...) __attribute__((format(printf, 2, 3)));
// In quotes, as JSON has it.
void append_json_text(text_builder *builder, const char *text);
// The text, terminated; null after a failure. The builder is empty afterwards.
heap_text take_text(text_builder *builder);

#endif
