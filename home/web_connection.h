// Between libmicrohttpd's callbacks and the checks of a request. All run on the loop's thread.
#ifndef HOME_WEB_CONNECTION_H
#define HOME_WEB_CONNECTION_H

#include "home/web_state.h"

#include <microhttpd.h>

MHD_Result take_request(void *server, MHD_Connection *connection, const char *path, const char *method, const char *version,
                        const char *piece, size_t *piece_size, void **request);
void forget_request(void *server, MHD_Connection *connection, void **request, MHD_RequestTerminationCode why);
void note_connection(void *server, MHD_Connection *connection, void **context, MHD_ConnectionNotificationCode what);
// Ends the connections whose request takes too long.
void end_stalled_connections(web_server *server, int64_t now_ms);
// The server's record of it.
web_connection *connection_of(MHD_Connection *connection);

#endif
