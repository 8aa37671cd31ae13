#include "platform/linux/request_checks.h"

#include "common/guards.h"
#include "common/mac_text.h"
#include "platform/linux/client/json_text.h"

#include <string.h>

namespace {

constexpr int limits_most = 5;
// Values in one text of limits: five classes of the 256 apps each that the daemon takes, and more than their members. As many
// times five still make a file that can be read.
constexpr size_t limit_values_most = 4096;

bool is_mac(const char *text, size_t length)
{
    char copy[mac_text_size] = {}, written[mac_text_size];
    unsigned char mac[6];
    if (length != mac_text_size - 1)
        return false;
    memcpy(copy, text, length);
    if (!read_mac_text(copy, mac))
        return false;
    write_mac_text(mac, written); // upper case, with dashes
    return strcmp(copy, written) == 0;
}

// 1 to 5, each once; `seen` has a bit for each class.
bool is_new_class(const cJSON *limit, unsigned *seen)
{
    const cJSON *member = cJSON_IsObject(limit) ? cJSON_GetObjectItem(limit, "class_type") : nullptr;
    for (unsigned class_type = 1; cJSON_IsNumber(member) && class_type <= limits_most; ++class_type) {
        if (member->valuedouble != class_type)
            continue;
        bool is_new = (*seen & 1u << class_type) == 0;
        *seen |= 1u << class_type;
        return is_new;
    }
    return false;
}

bool are_limits_of(const char *text, size_t length, const char *device, size_t device_length)
{
    heap_text copy(strndup(text, length));
    json_tree root(copy ? parse_json_text(copy.get(), request_text_limit, limit_values_most) : nullptr);
    const cJSON *owner = cJSON_GetObjectItem(root.get(), "device"), *limits = cJSON_GetObjectItem(root.get(), "data");
    if (!cJSON_IsString(owner) || strlen(owner->valuestring) != device_length ||
        memcmp(owner->valuestring, device, device_length) != 0)
        return false;
    int count = cJSON_IsArray(limits) ? cJSON_GetArraySize(limits) : 0;
    unsigned seen = 0;
    const cJSON *limit = nullptr;
    cJSON_ArrayForEach(limit, limits) {
        if (count > limits_most || !is_new_class(limit, &seen))
            return false;
    }
    return count > 0;
}

bool switches_make_sense(const request_head &head, const char *record)
{
    constexpr size_t room = sizeof(appident_payment_notify_st::mac);
    return head.device_length == 0 && head.text_length == sizeof(appident_payment_notify_st) &&
           is_mac(record, strnlen(record, room));
}

// Of these ids the device text is one device; the others take a list.
bool device_is_a_mac(u32 id)
{
    return id == APPIDENT_GET_CUR_DEVICE_APP || id == APPIDENT_GET_CUR_DEVICE_APP_FOR_ROM ||
           id == APPIDENT_SET_DEVICE_APP_LIST_USE_TIME || id == APPIDENT_GET_DEVICE_APP_LIST_USE_TIME;
}

} // namespace

bool request_makes_sense(const char *packet, size_t size)
{
    request_head head;
    if (size < sizeof(head) || size > request_packet_limit)
        return false;
    memcpy(&head, packet, sizeof(head));
    size_t left = size - sizeof(head);
    if (head.magic != request_magic || head.capacity > request_text_limit || head.device_length > left ||
        head.text_length != left - head.device_length)
        return false;
    const char *device = packet + sizeof(head), *text = device + head.device_length;
    request_shape shape = shape_of_request(head.id);
    if (shape == request_switches)
        return switches_make_sense(head, text);
    if (memchr(device, 0, left) || (device_is_a_mac(head.id) && !is_mac(device, head.device_length)))
        return false;
    return shape != request_store || are_limits_of(text, head.text_length, device, head.device_length);
}
