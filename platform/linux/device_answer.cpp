#include "platform/linux/device_answer.h"

#include "common/mac_text.h"

device_answer begin_answer()
{
    device_answer answer = {{}, true};
    append_text(&answer.text, "{\"err_no\":\"0\",\"data\":[");
    return answer;
}

void add_to_answer(device_answer *answer, const unsigned char *mac, int role)
{
    char text[mac_text_size];
    write_mac_text(mac, text);
    append_text(&answer->text, "%s{\"mac\":\"%s\",\"role\":\"%d\"}", answer->empty ? "" : ",", text, role);
    answer->empty = false;
}

heap_text end_answer(device_answer *answer)
{
    append_text(&answer->text, "]}");
    return take_text(&answer->text);
}
