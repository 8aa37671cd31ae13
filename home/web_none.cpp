// In place of web_*.cpp where libmicrohttpd is not installed.
#include "home/account_command.h"
#include "home/web_server.h"

#include <stdio.h>

web_server *open_web_server(household *)
{
    return nullptr;
}

void close_web_server(web_server *) {}

loop_part web_part(web_server *)
{
    return {[](void *, pollfd *, size_t, int64_t, int64_t *) -> size_t { return 0; },
            [](void *, const pollfd *, size_t, int64_t) {}, nullptr};
}

bool set_password(const home_settings &, const account_wanted &)
{
    fputs("appident-home: it was built without the page, so nobody can log in\n", stderr);
    return false;
}
