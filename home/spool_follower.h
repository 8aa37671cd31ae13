// Follows the daemon's spool for the history; pushes.sock is only a bell that rings when there is something to read.
//
// The place reached is committed with the facts read up to it, so that after a kill nothing is missing and nothing comes twice.
#ifndef HOME_SPOOL_FOLLOWER_H
#define HOME_SPOOL_FOLLOWER_H

#include "home/history.h"
#include "home/loop.h"
#include "home/spool_reader.h"

struct spool_follower {
    history *of = nullptr;
    std::string directory; // holds the spool and the bell
    spool_reader reader;
    int bell = -1; // stream socket, -1 while nobody listens
    int64_t next_look_ms = 0;
};

// Reads a piece of what is there. False when there is nothing more for now.
bool read_spool(spool_follower *follower);
void close_spool_follower(spool_follower *follower);
loop_part spool_part(spool_follower *follower);

// Takes in a whole file that does not grow. False when it cannot be read.
bool import_spool(history *of, const char *path);

#endif
