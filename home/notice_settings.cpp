#include "home/notice_settings.h"

#include <algorithm>
#include <iterator>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <variant>

namespace {

constexpr size_t text_most = 1000;
constexpr int texts_most = 32;
constexpr const char *kind_names[] = {"limit", "break", "first_use", "payment"};

struct field {
    const char *key;
    std::variant<std::string *, int64_t *, bool *, std::vector<std::string> *> value;
    int64_t least = 0, most = 0; // of numbers
};

void refuse(const char *block, const char *what)
{
    fprintf(stderr, "appident-home: \"%s\" is off: %s\n", block, what);
}

bool plain_text(const cJSON *item)
{
    const char *text = cJSON_GetStringValue(item);
    return text && strlen(text) <= text_most &&
           std::none_of(text, text + strlen(text), [](char one) { return (one & 0xe0) == 0 || one == 127; });
}

// What is wrong with the value, null when it has been taken.
const char *take_value(const cJSON *item, const field &into)
{
    if (std::string *const *text = std::get_if<std::string *>(&into.value)) {
        if (!plain_text(item))
            return "must be a text of at most 1000 bytes without control characters";
        **text = item->valuestring;
    } else if (int64_t *const *number = std::get_if<int64_t *>(&into.value)) {
        double value = cJSON_IsNumber(item) ? item->valuedouble : -1;
        if (value < static_cast<double>(into.least) || value > static_cast<double>(into.most) || value != floor(value))
            return "is no number within its bounds";
        **number = static_cast<int64_t>(value);
    } else if (bool *const *flag = std::get_if<bool *>(&into.value)) {
        if (!cJSON_IsBool(item))
            return "must be true or false";
        **flag = cJSON_IsTrue(item);
    } else {
        std::vector<std::string> *texts = *std::get_if<std::vector<std::string> *>(&into.value);
        texts->clear();
        const cJSON *one = nullptr;
        cJSON_ArrayForEach(one, item) {
            if (!plain_text(one))
                return "holds what is no text";
            texts->push_back(one->valuestring);
        }
        if (!cJSON_IsArray(item) || texts->empty() || cJSON_GetArraySize(item) > texts_most)
            return "must be a list of 1 to 32 texts";
    }
    return nullptr;
}

bool wrong_kinds(const notice_kinds &kinds)
{
    return std::any_of(kinds.names.begin(), kinds.names.end(), [](const std::string &name) {
        return std::none_of(std::begin(kind_names), std::end(kind_names), [&](const char *known) { return name == known; });
    });
}

// True when the object is there and every member of it is as it should be.
bool read_block(const cJSON *tree, const char *name, std::vector<field> fields, notice_kinds *kinds)
{
    const cJSON *block = cJSON_GetObjectItemCaseSensitive(tree, name), *item = nullptr;
    if (block && !cJSON_IsObject(block))
        return refuse(name, "it is no object"), false;
    fields.push_back({"on", &kinds->names});
    cJSON_ArrayForEach(item, block) {
        auto known =
            std::find_if(fields.begin(), fields.end(), [&](const field &one) { return !strcmp(one.key, item->string); });
        const char *wrong = known == fields.end() ? "is not known" : take_value(item, *known);
        if (wrong)
            return refuse(name, ("\"" + std::string(item->string) + "\" " + wrong).c_str()), false;
    }
    if (wrong_kinds(*kinds))
        return refuse(name, "\"on\" may list \"limit\", \"break\", \"first_use\", \"payment\""), false;
    return block != nullptr;
}

bool starts_with(const std::string &text, const char *start)
{
    return text.compare(0, strlen(start), start) == 0;
}

// Words of a topic: what stands between "/", without wildcards.
bool topic_text(const std::string &text, bool with_slashes)
{
    constexpr const char *allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-/";
    return !text.empty() && text.size() <= 64 && text.find_first_not_of(allowed) == std::string::npos && text[0] != '/' &&
           text.back() != '/' && (with_slashes || text.find('/') == std::string::npos);
}

void read_webhook(const cJSON *tree, webhook_settings *out)
{
    if (!read_block(tree, "webhook",
                    {{"url", &out->url},
                     {"authorization", &out->authorization},
                     {"ca", &out->ca},
                     {"retry_after", &out->retry_after, 1, 600}},
                    &out->kinds))
        return;
    out->on = starts_with(out->url, "http://") || starts_with(out->url, "https://");
    if (!out->on)
        refuse("webhook", "\"url\" must begin with http:// or https://");
}

void read_command(const cJSON *tree, command_settings *out)
{
    if (!read_block(tree, "command", {{"run", &out->run}, {"time_limit", &out->time_limit, 1, 600}}, &out->kinds))
        return;
    out->on = !out->run.empty() && starts_with(out->run[0], "/");
    if (!out->on)
        refuse("command", "\"run\" must list a program, with its whole path, and its arguments");
}

void read_mqtt(const cJSON *tree, mqtt_settings *out)
{
    if (!read_block(tree, "mqtt",
                    {{"host", &out->host},
                     {"port", &out->port, 1, 65535},
                     {"user", &out->user},
                     {"password", &out->password},
                     {"tls", &out->tls},
                     {"ca", &out->ca},
                     {"id", &out->id},
                     {"prefix", &out->prefix},
                     {"discovery", &out->discovery},
                     {"discovery_prefix", &out->discovery_prefix},
                     {"pushes", &out->pushes},
                     {"limits", &out->limits}},
                    &out->kinds))
        return;
    const char *wrong = out->host.empty()                                 ? "\"host\" is missing"
                        : !out->id.empty() && !topic_text(out->id, false) ? "\"id\" may have letters, digits, - and _"
                        : !topic_text(out->prefix, true)                  ? "\"prefix\" is no topic"
                        : !topic_text(out->discovery_prefix, true)        ? "\"discovery_prefix\" is no topic"
                        : out->user.empty() && !out->password.empty()     ? "\"password\" without \"user\""
                        : !out->ca.empty() && !out->tls                   ? "\"ca\" without \"tls\""
                                                                          : nullptr;
    if (wrong)
        return refuse("mqtt", wrong);
    constexpr int64_t port_plain = 1883, port_tls = 8883;
    if (out->port == 0)
        out->port = out->tls ? port_tls : port_plain;
    out->on = true;
}

} // namespace

bool notice_kinds::wants(const std::string &name) const
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

notice_settings read_notice_settings(const cJSON *tree)
{
    notice_settings out;
    read_webhook(tree, &out.webhook);
    read_command(tree, &out.command);
    read_mqtt(tree, &out.mqtt);
    return out;
}
