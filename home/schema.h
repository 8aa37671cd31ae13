// The tables, and the steps that bring an older database up to them. docs/home.md tells what each column means.
#ifndef HOME_SCHEMA_H
#define HOME_SCHEMA_H

#include <sqlite3.h>

#include <string>

// What PRAGMA user_version says of a database that is up to date.
int schema_version();
// Runs the steps that are missing, each in a transaction of its own. False with the reason, for one that a newer program made
// too.
bool migrate(sqlite3 *handle, std::string *why);

#endif
