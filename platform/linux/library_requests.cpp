#include "platform/linux/library_requests.h"

int library_request(u32, const char *, heap_text *)
{
    return -1;
}
