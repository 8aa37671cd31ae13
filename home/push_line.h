// One line of the daemon's spool, checked: {"run":"...","seq":1,"time":...,"code":...,"occur_time":...,"data":...}
//
// Lines of daemons that do not number them lack "run" and "seq". Everything in a line may be wrong: whoever reads a field says
// what it may be, and what is not is passed over and counted.
#ifndef HOME_PUSH_LINE_H
#define HOME_PUSH_LINE_H

#include "common/guards.h"
#include "home/history.h"

#include <string>

// The longest line that is read; the daemon's pushes hold 64 KiB at most.
constexpr size_t push_line_limit = 128 * 1024;

struct push_line {
    std::string run;        // "" without a number
    int64_t number = 0;     // from 1; 0 without one
    int64_t time = 0;       // epoch second of the push
    int64_t occur_time = 0; // uptime second, of a report that was put off; 0 for all others
    int code = 0;           // 0 for a device's status
    json_tree tree;
    const cJSON *data = nullptr; // within the tree; object, array or text
};

// False with the reason to pass it over. `text` ends with a NUL at `length`.
bool read_push_line(const char *text, size_t length, push_line *line, home_count *why);

// A whole number of 0 to `most`, written as number or as text.
bool read_count(const cJSON *object, const char *key, double most, int64_t *out);
// A MAC, brought to the form "AA-BB-CC-DD-EE-FF".
bool read_mac(const cJSON *object, const char *key, std::string *out);
// A text for people: at most `most` bytes of valid UTF-8, control characters replaced. "" when there is none.
std::string read_words(const cJSON *object, const char *key, size_t most);

#endif
