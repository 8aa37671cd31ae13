// An SQLite file layer that can lose what has not been synced, as a disk does when the power goes.
#ifndef HOME_POWER_CUT_H
#define HOME_POWER_CUT_H

#include <string>

// The layer's name for sqlite3_open_v2.
const char *register_power_cut_vfs();
// From here on nothing more reaches the files.
void cut_power();
// Brings the database's files back to what they held when each was last synced. All connections must be closed.
void restore_power(const std::string &path);

#endif
