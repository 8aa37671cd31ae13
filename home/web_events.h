// Server-sent events: hints that something has changed, to be fetched anew.
//
// A stream waits suspended, so that it costs nothing. What is told twice before it was sent is sent once; a client that takes
// nothing for a minute is cut off.
#ifndef HOME_WEB_EVENTS_H
#define HOME_WEB_EVENTS_H

#include "home/facts.h"
#include "home/web_request.h"

#include <list>

struct event_stream {
    web_server *server;
    MHD_Connection *connection;
    account who;
    std::string session;              // digest
    std::vector<std::string> waiting; // events without their numbers
    std::string sending;              // what is left of the piece that is being sent
    bool suspended;
    bool ending;
    int64_t taken_ms; // when it last took all that there was
    int64_t beat_ms;  // when it was last sent anything
};

struct event_streams {
    std::list<event_stream> open;
    int64_t last_id = 0;
};

// Tells the streams what the history learnt. For the history's list of listeners.
void tell_streams(void *server, const fact &news);
// Comments to those that were silent, and an end to those that take nothing or whose session has ended. Returns the uptime at
// which it wants to be called again.
int64_t keep_streams(web_server *server, int64_t now_ms);
// Has all streams end. The daemon must run once more for that.
void end_streams(web_server *server);

#endif
