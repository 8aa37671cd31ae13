#include "home/line_numbers.h"

#include <algorithm>
#include <string.h>

namespace {

int64_t last_of_run(history *of, const std::string &run)
{
    return number_of(&of->db, 0, "SELECT last FROM run WHERE run=?", run);
}

// Takes the number out of the gap that it lies in. False when it lies in none.
bool fill_gap(history *of, const push_line &line)
{
    database *db = &of->db;
    int64_t id = 0, first = 0, last = 0;
    bool before = false;
    {
        statement read(db, "SELECT id,first,last,why FROM gap WHERE run=?1 AND first<=?2 AND last>=?2", line.run, line.number);
        if (!read.row())
            return false;
        id = read.number(0);
        first = read.number(1);
        last = read.number(2);
        before = read.text(3) == "before";
    }
    count(of, count_lost, before ? 0 : -1);
    if (first == last)
        return change(db, "DELETE FROM gap WHERE id=?", id);
    if (line.number == first)
        return change(db, "UPDATE gap SET first=first+1,lost=lost-1,start=max(start,?2) WHERE id=?1", id, line.time);
    if (line.number == last)
        return change(db, "UPDATE gap SET last=last-1,lost=lost-1,end=min(end,?2) WHERE id=?1", id, line.time);
    change(db,
           "INSERT INTO gap(start,end,lost,why,run,first,last) SELECT ?2,end,last-?3,why,run,?3+1,last FROM gap WHERE id=?1",
           id, line.time, line.number);
    return change(db, "UPDATE gap SET last=?3-1,lost=?3-first,end=?2 WHERE id=?1", id, line.time, line.number);
}

// The first line of a run that was not known.
line_order begin_run(history *of, const push_line &line)
{
    database *db = &of->db;
    int64_t earliest = number_of(db, 0, "SELECT min(first_time) FROM run");
    int64_t current = number_of(db, 0, "SELECT first_time FROM run WHERE run=?", of->place.run);
    // The spool that is followed only grows: there an unknown run is a newer one, whatever its clock says.
    bool older = of->importing && current > 0 && line.time < current;
    // What came before all that is known is no loss: the history begins here.
    bool before = earliest == 0 || (older && line.time < earliest);
    change(db, "INSERT INTO run VALUES(?1,?2,?3,?3)", line.run, line.number, line.time);
    // How far the run before it came; up to now only the place told.
    if (!older)
        change(db, "UPDATE run SET last=?2,last_time=?3 WHERE run=?1", of->place.run, of->place.last, of->place.last_time);
    int64_t missing = line.number - 1;
    if (before && missing > 0)
        add_gap(of, {line.time, line.time, missing, "before", line.run, 1, missing});
    else if (!before && (missing > 0 || !older))
        add_gap(of, {older ? line.time : std::min(of->place.last_time ? of->place.last_time : line.time, line.time), line.time,
                     missing, older ? "lost" : "restart", line.run, missing ? 1 : 0, missing});
    if (older)
        return line_late;
    of->place.run = line.run;
    of->place.last = line.number;
    return before ? line_follows : line_restarts;
}

// A line of a run that is known and not the last one.
line_order take_older(history *of, const push_line &line, int64_t last)
{
    if (line.number <= last)
        return fill_gap(of, line) ? line_late : line_repeated;
    if (line.number > last + 1)
        add_gap(of, {line.time, line.time, line.number - last - 1, "lost", line.run, last + 1, line.number - 1});
    change(&of->db, "UPDATE run SET last=?2,last_time=max(last_time,?3) WHERE run=?1", line.run, line.number, line.time);
    return line_late;
}

} // namespace

void add_gap(history *of, const gap_note &gap)
{
    change(&of->db, "INSERT INTO gap(start,end,lost,why,run,first,last) VALUES(?,?,?,?,?,?,?)", gap.start, gap.end, gap.lost,
           gap.why, gap.run, gap.first, gap.last);
    if (strcmp(gap.why, "before") != 0)
        count(of, count_lost, std::max<int64_t>(gap.lost, 0));
    add_fact(of, {fact_gap, gap.end, 0, 0, 0, 0, ""});
}

void note_break(history *of, int64_t time, bool unnumbered)
{
    if (unnumbered)
        add_gap(of, {of->place.last_time ? of->place.last_time : time, time, -1, "lost", "", 0, 0});
    of->place.broken = true;
}

line_order take_number(history *of, const push_line &line)
{
    if (line.number == 0)
        return line_follows;
    if (line.run != of->place.run) {
        int64_t last = last_of_run(of, line.run);
        return last > 0 ? take_older(of, line, last) : begin_run(of, line);
    }
    if (line.number <= of->place.last)
        return fill_gap(of, line) ? line_late : line_repeated;
    int64_t missing = line.number - of->place.last - 1;
    if (missing > 0)
        add_gap(of, {of->place.last_time ? of->place.last_time : line.time, line.time, missing, "lost", line.run,
                     of->place.last + 1, line.number - 1});
    of->place.last = line.number;
    return missing > 0 ? line_skips : line_follows;
}
