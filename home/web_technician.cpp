// For who looks after the box: counters, the doctor's findings, and whether the program is well.
#include "home/web_routes.h"
#include "home/web_state.h"

void answer_health(web_request *asked, web_answer *answer)
{
    const database &db = asked->home->all.db;
    bool well = db.error == SQLITE_OK && !db.damaged;
    answer->status = well ? 200 : 503;
    answer->type = "text/plain; charset=utf-8";
    answer->text = well ? "ok\n" : "the database cannot be written\n";
}
