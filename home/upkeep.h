// What the owner does to the whole database, and what is done to it once a day.
//
// The program that follows the spool holds a lock beside the database, so that no second one writes to it.
#ifndef HOME_UPKEEP_H
#define HOME_UPKEEP_H

#include "common/guards.h"
#include "home/history.h"

// Holds PATH.lock, with this process's id in it. A negative descriptor when another process holds it.
int lock_database(const std::string &path);
// Has the process that holds the lock write what has been pushed until now. Does nothing when there is none.
void ask_for_commit(const std::string &path);
// That process says that it has done so: whoever asked looks at the time of the lock's file.
void answer_commit(const std::string &path);

// A copy of what is committed, also while another process writes. False with the reason.
bool backup_database(const std::string &path, const std::string &copy, std::string *why);
// Checks the copy and puts it in place of the database. The lock must be held.
bool restore_database(const std::string &path, const std::string &copy, std::string *why);

// Gives the database and what lies beside it to whom the directory belongs. What root makes, the service could not open.
void give_to_directory_owner(const std::string &path);

// Deletes what is older than the settings keep, and devices not seen for so long of which nothing is kept and nobody said
// anything. A clock that is wrong deletes at most a day too much: time counts up to a day after the last push.
void drop_old_rows(history *of, int64_t time, int64_t session_days, int64_t day_years);

#endif
