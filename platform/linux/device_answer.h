// Answers of the device service: {"err_no":"0","data":[{"mac":"AA-BB-CC-DD-EE-FF","role":"1"}]}, numbers as strings.
#ifndef PLATFORM_LINUX_DEVICE_ANSWER_H
#define PLATFORM_LINUX_DEVICE_ANSWER_H

#include "platform/linux/text_builder.h"

struct device_answer {
    text_builder text;
    bool empty;
};

device_answer begin_answer();
void add_to_answer(device_answer *answer, const unsigned char *mac, int role);
// Null without memory.
heap_text end_answer(device_answer *answer);

#endif
