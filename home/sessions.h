// The table of sessions: a device used an app from start to end.
//
// Whoever stores a session keeps two promises for all of them: the day's sums follow every change, and no two sessions of a
// device overlap. A session is drawn over its minutes, not up to now: a running one ends where its last whole minute does.
#ifndef HOME_SESSIONS_H
#define HOME_SESSIONS_H

#include "home/history.h"

#include <vector>

enum session_state {
    session_open,     // in use, as far as is known
    session_reported, // the daemon told its end
    session_presumed, // it ended, as the daemon restarted, fell silent or told something newer; a late report may still come
};

// No session is longer: the daemon begins each anew at midnight.
constexpr int64_t session_longest = 2 * 86400;

struct session {
    int64_t device = 0;
    int64_t start = 0; // epoch seconds
    u32 app = 0;
    int64_t end = 0;
    int64_t minutes = 0;
    int64_t up = 0, down = 0; // bytes, known with the report
    session_state state = session_open;
    int64_t heard = 0;   // time of the last line that said it is in use
    int64_t steady = 0;  // its last two such lines came a minute apart
    int64_t jumped = 0;  // seconds that the daemon's clock jumped forward meanwhile
    int64_t told = 0;    // time of the report of history, 0 for none yet
    bool stored = false; // it is in the table
};

bool find_session(database *db, int64_t device, int64_t start, u32 app, session *found);
// All sessions of the app on the device that may still be reported, the latest first.
std::vector<session> untold_sessions(database *db, int64_t device, u32 app);
std::vector<session> open_sessions(database *db);
std::vector<session> open_sessions_of(database *db, int64_t device);
// Those that touch the time from `from` to before `to`, by device and start; `device` 0: of all.
std::vector<session> sessions_between(database *db, int64_t from, int64_t to, int64_t device = 0);
// The end of the device's last session that began before `start`, 0 for none.
int64_t end_before(database *db, int64_t device, int64_t start);

// Writes the session as it is now; `end` follows from start and minutes. A closed one without a minute is not kept.
void store_session(history *of, session now);
// Closes it for want of news.
void presume_ended(history *of, session ended);

// What the session's minutes and bytes give to each day.
struct day_share {
    int day;
    int64_t minutes, up, down;
};
std::vector<day_share> shares_of(const session &of);

#endif
