// The requests of the web interface: one table of ids and handlers.
#ifndef APPIDENT_REQUESTS_REQUESTS_H
#define APPIDENT_REQUESTS_REQUESTS_H

// Called by the platform's request server on the main thread. 0, or -1 for an id without handler or a handler's failure.
int cgi_event_handler(unsigned int msg_id, void *pa, void *pb, void *pc);

#endif
