// Who may log in to the page, and who has: the tables account and token.
//
// A session is known by a random secret of 256 bits that only the browser keeps; the table has its digest.
#ifndef HOME_ACCOUNTS_H
#define HOME_ACCOUNTS_H

#include "home/history.h"

#include <string>
#include <vector>

// Bits, for tables of who may do what.
enum account_kind : u32 { kind_parent = 1, kind_child = 2, kind_technician = 4 };
// 0 for another text; "" for another number.
u32 account_kind_of(const std::string &text);
const char *account_kind_name(u32 kind);

constexpr int64_t accounts_most = 50;

struct account {
    int64_t id = 0; // row, 0 for nobody
    std::string name;
    u32 kind = 0;
    std::string password; // hash
    int64_t person = 0;   // row, 0 for none
    std::string language; // "" not chosen
};
// Letters, digits and other characters of a name, but no control characters, '/', '?' or '#'; 1 to 32 bytes of UTF-8.
bool is_account_name(const std::string &name);
bool find_account(database *db, const std::string &name, account *found);
std::vector<account> list_accounts(database *db);
// Changes the one of that name or makes it; its `id` is not looked at. False when there are too many, or it cannot be written.
bool store_account(database *db, const account &wanted, int64_t time);
bool delete_account(database *db, const std::string &name);
// The row of the person, made when it is new; 0 for "".
int64_t person_row(database *db, const std::string &name);

// The new session's secret, "" when it cannot be made.
std::string begin_session(database *db, int64_t account, int64_t time);
// Finds who has the session; `digest` is of its secret.
bool find_login(database *db, const std::string &digest, int64_t time, account *found);
void end_session(database *db, const std::string &digest);
// All of the account but the one given.
void end_sessions(database *db, int64_t account, const std::string &but);
// The secret that writes carry beside the cookie, which other sites cannot read.
std::string write_token(const std::string &secret);

#endif
