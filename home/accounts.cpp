#include "home/accounts.h"

#include "home/secrets.h"

#include <string.h>

namespace {

constexpr struct {
    u32 kind;
    const char *name;
} kinds[] = {{kind_parent, "parent"}, {kind_child, "child"}, {kind_technician, "technician"}};

constexpr int64_t session_lasts = 30 * 86400;    // after its last use
constexpr int64_t session_use_noted = 12 * 3600; // a use is written down this often
constexpr int64_t sessions_of_account_most = 20;

#define ACCOUNT_COLUMNS "account.id,name,kind,password,coalesce(person,0),language"

account read_account(const statement &row)
{
    return {row.number(0), row.text(1), account_kind_of(row.text(2)), row.text(3), row.number(4), row.text(5)};
}

} // namespace

u32 account_kind_of(const std::string &text)
{
    for (const auto &one : kinds)
        if (text == one.name)
            return one.kind;
    return 0;
}

const char *account_kind_name(u32 kind)
{
    for (const auto &one : kinds)
        if (kind == one.kind)
            return one.name;
    return "";
}

bool is_account_name(const std::string &name)
{
    constexpr size_t name_most = 32;
    for (char c : name)
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f || strchr("/?#", c))
            return false;
    return !name.empty() && name.size() <= name_most && name.front() != ' ' && name.back() != ' ';
}

bool find_account(database *db, const std::string &name, account *found)
{
    statement row(db, "SELECT " ACCOUNT_COLUMNS " FROM account WHERE name=?", name);
    if (!row.row())
        return false;
    *found = read_account(row);
    return true;
}

std::vector<account> list_accounts(database *db)
{
    std::vector<account> all;
    statement row(db, "SELECT " ACCOUNT_COLUMNS " FROM account ORDER BY name");
    while (row.row())
        all.push_back(read_account(row));
    return all;
}

bool store_account(database *db, const account &wanted, int64_t time)
{
    account known;
    if (!find_account(db, wanted.name, &known) && number_of(db, 0, "SELECT count(*) FROM account") >= accounts_most)
        return false;
    return change(db,
                  "INSERT INTO account(name,kind,password,person,language,created) VALUES(?1,?2,?3,nullif(?4,0),?5,?6) "
                  "ON CONFLICT(name) DO UPDATE SET kind=?2,password=?3,person=nullif(?4,0),language=?5",
                  wanted.name, account_kind_name(wanted.kind), wanted.password, wanted.person, wanted.language, time);
}

bool delete_account(database *db, const std::string &name)
{
    return change(db, "DELETE FROM account WHERE name=?", name) && sqlite3_changes(db->handle) > 0;
}

int64_t person_row(database *db, const std::string &name)
{
    if (name.empty())
        return 0;
    change(db, "INSERT INTO person(name) VALUES(?) ON CONFLICT DO NOTHING", name);
    return number_of(db, 0, "SELECT id FROM person WHERE name=?", name);
}

std::string begin_session(database *db, int64_t account, int64_t time)
{
    constexpr size_t secret_bytes = 32;
    std::string secret = random_hex(secret_bytes);
    if (secret.empty())
        return "";
    change(db, "DELETE FROM token WHERE expires<?", time);
    change(db, "DELETE FROM token WHERE hash IN(SELECT hash FROM token WHERE account=? ORDER BY used DESC LIMIT -1 OFFSET ?)",
           account, sessions_of_account_most - 1);
    bool begun = change(db, "INSERT INTO token(hash,account,created,used,expires) VALUES(?1,?2,?3,?3,?4)", digest_of(secret),
                        account, time, time + session_lasts);
    return begun ? secret : "";
}

bool find_login(database *db, const std::string &digest, int64_t time, account *found)
{
    int64_t used = 0;
    {
        statement row(db,
                      "SELECT " ACCOUNT_COLUMNS ",used FROM token JOIN account ON account.id=account "
                      "WHERE hash=? AND expires>=?",
                      digest, time);
        if (!row.row())
            return false;
        *found = read_account(row);
        used = row.number(6);
    }
    if (time > used + session_use_noted)
        change(db, "UPDATE token SET used=?2,expires=?3 WHERE hash=?1", digest, time, time + session_lasts);
    return true;
}

void end_session(database *db, const std::string &digest)
{
    change(db, "DELETE FROM token WHERE hash=?", digest);
    db->commit_wanted = true;
}

void end_sessions(database *db, int64_t account, const std::string &but)
{
    change(db, "DELETE FROM token WHERE account=? AND hash<>?", account, but);
    db->commit_wanted = true;
}

std::string write_token(const std::string &secret)
{
    return digest_of("write " + secret);
}
