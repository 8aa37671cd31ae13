// The one way out: push codes, the fields that pushes share, and the hand-over to the router's push service.
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

// Hands a text over and returns the service's result; the caller keeps the text.
int my_push(int type, const char *data, unsigned long occur_time);
// The family group of a device, -1 when unknown.
int get_folk_id(const unsigned char *mac_bytes);
// The role as pushes show it: 0 when the look-up fails.
int shown_role(const char *mac_str);

// Add one string member; silently left out when there is no memory.
void add_text(cJSON *object, const char *key, const char *value);
void add_u32(cJSON *object, const char *key, u32 value); // "%u"
void add_u64(cJSON *object, const char *key, u64 value); // "%llu"
void add_int(cJSON *object, const char *key, int value); // "%d"

// The display name, at most 32 characters; empty when unknown.
struct device_alias {
    char text[33];
};
device_alias get_alias(const device_record &dev);

// A new object with "endmac", and "alias" where one is given; null when there is no memory.
json_tree begin_push(const device_record &dev, const device_alias *alias);
// Adds "folk_id", always the last key.
void end_push(cJSON *object, const device_record &dev);
// Prints the tree into *text and sends it. The service's result, or -1 with *text null when it could not be printed.
int send_push(push_code code, const cJSON *tree, unsigned long occur_time, heap_text *text);

#endif
