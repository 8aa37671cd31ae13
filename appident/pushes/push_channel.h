// Sending pushes to the router's push service: the codes, the fields that pushes share, and the one sender.
//
// Every value in a push is a JSON string, numbers too. Pushes go out at once on the calling thread; callers hold the lock where
// they walk records, and nothing here takes it.
#ifndef APPIDENT_PUSHES_PUSH_CHANNEL_H
#define APPIDENT_PUSHES_PUSH_CHANNEL_H

#include "appident/model/records.h"
#include "common/guards.h"

enum push_code : int {
    push_code_history = 1008,
    push_code_payment = 1012,
    push_code_addiction = 1015,
    push_code_eye_protection = 1021,
    push_code_daydayup = 1022,
    push_code_presence = 1023,
};

// The payment pseudo-apps that are never reported as apps.
bool is_excluded_app(u32 app_id);

// Gives the service a text and returns its result; the caller keeps the text.
int my_push(int type, const char *data, unsigned long occur_time);
// Shows `now` as the time of the last push among the counters, if one went out since the last call. Each tick calls this, so
// that a push need not ask the clock.
void note_push_time(u32 now);
// The family group of a device, -1 when unknown.
int get_folk_id(const unsigned char *mac_bytes);
// The role as pushes show it: 0 when the look-up fails.
int shown_role(const char *mac_str);

// Add one string member; silently left out when there is no memory.
void add_text(cJSON *object, const char *key, const char *value);
void add_u32(cJSON *object, const char *key, u32 value); // "%u"
void add_u64(cJSON *object, const char *key, u64 value); // "%llu"
void add_int(cJSON *object, const char *key, int value); // "%d"

// A new object that begins with "endmac"; null when there is no memory.
json_tree begin_object(const device_record &dev);
// Adds "folk_id", always the last key.
void end_object(cJSON *object, const device_record &dev);

// The display name, at most 32 characters; empty when unknown.
struct device_alias {
    char text[33];
};

// The steps of push_object around the fields: the object with "endmac" and "alias", then "folk_id" and the text. Null when
// there is no memory.
json_tree begin_named_object(const device_record &dev, device_alias *alias);
heap_text end_and_print(cJSON *object, const device_record &dev);

// Sends one push of a device: the object, add_fields(object), the text, log(alias, text, result). The service's result; -1,
// with nothing sent or logged, when there is no memory.
template <typename adder, typename logger>
int push_object(push_code code, const device_record &dev, unsigned long occur_time, adder add_fields, logger log)
{
    device_alias alias;
    json_tree object = begin_named_object(dev, &alias);
    if (!object)
        return -1;
    add_fields(object.get());
    heap_text text = end_and_print(object.get(), dev);
    if (!text)
        return -1;
    int result = my_push(code, text.get(), occur_time);
    log(alias.text, text.get(), result);
    return result;
}

#endif
