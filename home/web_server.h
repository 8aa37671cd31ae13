// The page's server: libmicrohttpd without threads, on the program's one loop.
//
// It listens on one address, the LAN's own unless the settings name one, and moves when that changes. What a client can make it
// do is bounded: 32 connections, 64 KiB of a body, a minute for a request.
#ifndef HOME_WEB_SERVER_H
#define HOME_WEB_SERVER_H

#include "home/loop.h"
#include "home/serve.h"

struct web_server;

// Null when there is nothing to serve with: it was built without the page.
web_server *open_web_server(household *home);
void close_web_server(web_server *server);
loop_part web_part(web_server *server);

#endif
