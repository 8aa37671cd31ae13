#include "home/push_line.h"

#include "common/mac_text.h"
#include "platform/linux/client/json_text.h"

#include <math.h>
#include <string.h>

namespace {

constexpr size_t run_length = 16;
constexpr double latest_time = 4294967295.0; // the daemon's own times are unsigned 32-bit
constexpr double most_number = 9007199254740992.0;

bool is_run(const char *text)
{
    return text && strlen(text) == run_length && strspn(text, "0123456789abcdef") == run_length;
}

// The bytes of the character that begins here, 0 for none that is valid UTF-8.
size_t character_length(const unsigned char *at)
{
    if (at[0] < 0x80)
        return 1;
    size_t length = at[0] >= 0xf0 ? 4 : at[0] >= 0xe0 ? 3 : 2;
    if (at[0] < 0xc2 || at[0] > 0xf4)
        return 0;
    for (size_t i = 1; i < length; ++i)
        if ((at[i] & 0xc0) != 0x80)
            return 0;
    bool too_long = (at[0] == 0xe0 && at[1] < 0xa0) || (at[0] == 0xf0 && at[1] < 0x90);
    bool no_character = (at[0] == 0xed && at[1] > 0x9f) || (at[0] == 0xf4 && at[1] > 0x8f);
    return too_long || no_character ? 0 : length;
}

bool is_whole(double value, double most)
{
    return value >= 0 && value <= most && value == floor(value);
}

} // namespace

bool read_push_line(const char *text, size_t length, push_line *line, home_count *why)
{
    *why = length > push_line_limit ? count_too_long : count_not_json;
    line->tree.reset(length > push_line_limit ? nullptr : parse_json_text(text, push_line_limit));
    if (!line->tree)
        return false;
    *why = count_wrong_shape;
    int64_t code = 0;
    line->data = cJSON_GetObjectItemCaseSensitive(line->tree.get(), "data");
    if (!cJSON_IsObject(line->tree.get()) || !line->data || !read_count(line->tree.get(), "time", latest_time, &line->time) ||
        line->time == 0 || !read_count(line->tree.get(), "code", 65535, &code))
        return false;
    line->code = static_cast<int>(code);
    if (!read_count(line->tree.get(), "occur_time", latest_time, &line->occur_time))
        line->occur_time = 0;
    const char *run = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(line->tree.get(), "run"));
    if (is_run(run) && read_count(line->tree.get(), "seq", most_number, &line->number) && line->number > 0)
        line->run = run;
    else
        line->number = 0;
    return true;
}

bool read_count(const cJSON *object, const char *key, double most, int64_t *out)
{
    const cJSON *item = cJSON_GetObjectItemCaseSensitive(object, key);
    double value = -1;
    if (cJSON_IsNumber(item)) {
        value = item->valuedouble;
    } else if (cJSON_IsString(item) && *item->valuestring && strlen(item->valuestring) <= 20 &&
               strspn(item->valuestring, "0123456789") == strlen(item->valuestring)) {
        value = strtod(item->valuestring, nullptr);
    }
    if (!is_whole(value, most))
        return false;
    *out = static_cast<int64_t>(value);
    return true;
}

bool read_mac(const cJSON *object, const char *key, std::string *out)
{
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, key));
    unsigned char mac[6];
    char normal[mac_text_size];
    if (!text || !read_mac_text(text, mac))
        return false;
    write_mac_text(mac, normal);
    *out = normal;
    return true;
}

std::string read_words(const cJSON *object, const char *key, size_t most)
{
    const char *text = cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(object, key));
    std::string words;
    for (const unsigned char *at = reinterpret_cast<const unsigned char *>(text ? text : ""); *at;) {
        size_t length = character_length(at);
        if (words.size() + (length ? length : 1) > most)
            break;
        if (length == 0 || (length == 1 && (*at < 0x20 || *at == 0x7f)))
            words.push_back('?');
        else
            words.append(reinterpret_cast<const char *>(at), length);
        at += length ? length : 1;
    }
    return words;
}
