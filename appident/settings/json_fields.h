// Members of JSON trees that come from outside: what has the wrong type or is out of range counts as absent.
#ifndef APPIDENT_SETTINGS_JSON_FIELDS_H
#define APPIDENT_SETTINGS_JSON_FIELDS_H

#include "igd/igd_types.h"

#include <cjson/cJSON.h>

inline cJSON *array_member(const cJSON *object, const char *key)
{
    cJSON *item = cJSON_GetObjectItem(object, key);
    return cJSON_IsArray(item) ? item : nullptr;
}

inline cJSON *object_member(const cJSON *object, const char *key)
{
    cJSON *item = cJSON_GetObjectItem(object, key);
    return cJSON_IsObject(item) ? item : nullptr;
}

// False, with nothing written, unless the item is a number from 0 to limit. A fraction is cut off.
inline bool read_number(const cJSON *item, u32 limit, u32 *value)
{
    if (!cJSON_IsNumber(item) || !(item->valuedouble >= 0 && item->valuedouble <= limit))
        return false;
    *value = static_cast<u32>(item->valuedouble);
    return true;
}

inline bool number_member(const cJSON *object, const char *key, u32 limit, u32 *value)
{
    return read_number(cJSON_GetObjectItem(object, key), limit, value);
}

// Removes every member of that name.
inline void drop_member(cJSON *object, const char *key)
{
    while (cJSON_GetObjectItem(object, key))
        cJSON_DeleteItemFromObject(object, key);
}

// Adds the item as the last member, in place of any of that name. The item is owned by the object, or freed on failure.
inline bool put_member(cJSON *object, const char *key, cJSON *item)
{
    drop_member(object, key);
    if (cJSON_AddItemToObject(object, key, item))
        return true;
    cJSON_Delete(item);
    return false;
}

#endif
