#include "home/account_command.h"

#include "home/accounts.h"
#include "home/password.h"
#include "home/queries.h"
#include "home/upkeep.h"

#include <stdio.h>
#include <time.h>

namespace {

bool fail(const std::string &why)
{
    fprintf(stderr, "appident-home: %s\n", why.c_str());
    return false;
}

// The running program writes its batch when asked, and soon begins another one.
bool begin_beside_the_program(database *db)
{
    constexpr int tries = 5;
    for (int i = 0; i < tries; ++i) {
        ask_for_commit(db->path);
        begin_batch(db);
        if (db->batch_began_ms >= 0)
            return true;
    }
    return false;
}

bool store(history *all, const account_wanted &wanted, const std::string &hash)
{
    int64_t now = time(nullptr);
    account who;
    bool known = find_account(&all->db, wanted.name, &who);
    who.name = wanted.name;
    who.password = hash;
    if (!wanted.kind.empty() || !known)
        who.kind = wanted.kind.empty() ? static_cast<u32>(kind_parent) : account_kind_of(wanted.kind);
    if (!wanted.person.empty())
        who.person = person_row(&all->db, wanted.person);
    if (!store_account(&all->db, who, now))
        return false;
    if (known)
        end_sessions(&all->db, who.id, "");
    add_change(all, {now, wanted.name, "", "", known ? "password" : "account", "", known ? "" : account_kind_name(who.kind)});
    return commit_batch(&all->db);
}

} // namespace

bool set_password(const home_settings &settings, const account_wanted &wanted)
{
    if (!is_account_name(wanted.name))
        return fail("a name has 1 to 32 bytes without '/', '?', '#' and control characters");
    if (!wanted.kind.empty() && !account_kind_of(wanted.kind))
        return fail("--kind takes parent, child or technician");
    std::string password, why;
    if (!ask_password(&password))
        return false;
    std::string hash = hash_password(password);
    // Not as a history: the place in the spool is the running program's.
    history all;
    if (hash.empty() || !open_database(&all.db, settings.database, {}, &why))
        return fail(hash.empty() ? "the C library knows no bcrypt" : settings.database + ": " + why);
    bool stored = begin_beside_the_program(&all.db) && store(&all, wanted, hash);
    if (!stored)
        fail(settings.database + ": " + sqlite3_errstr(all.db.error));
    close_database(&all.db);
    return stored;
}
