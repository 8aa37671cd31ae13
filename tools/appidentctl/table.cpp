#include "tools/appidentctl/table.h"

#include <algorithm>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <wchar.h>
#include <wctype.h>

namespace {

constexpr size_t gap = 2; // blanks between columns
constexpr const char *cut_mark = "…";

// Without a UTF-8 locale in the system nothing is known of characters but where they begin: each is then taken as printable and
// one cell wide.
bool knows_characters()
{
    return MB_CUR_MAX > 1;
}

template <typename taker> void each_unknown_character(const std::string &text, taker each)
{
    for (size_t at = 0, next = 0; at < text.size(); at = next) {
        for (next = at + 1; next < text.size() && (text[next] & 0xc0) == 0x80;)
            next++;
        each(static_cast<unsigned char>(text[at]) < 0x80 ? static_cast<wchar_t>(text[at]) : L'x', text.substr(at, next - at));
    }
}

// Calls `each` with every character and its bytes.
template <typename taker> void each_character(const std::string &text, taker each)
{
    if (!knows_characters()) {
        each_unknown_character(text, each);
        return;
    }
    mbstate_t state = {};
    for (size_t at = 0; at < text.size();) {
        wchar_t character = 0;
        size_t length = mbrtowc(&character, text.data() + at, text.size() - at, &state);
        if (length == 0 || length > text.size() - at) { // no character: a byte that cannot stand here
            state = {};
            character = L'\0';
            length = 1;
        }
        each(character, text.substr(at, length));
        at += length;
    }
}

// Cells on the screen; a Chinese character takes two.
size_t width_of(wchar_t character)
{
    int width = wcwidth(character);
    return width > 0 ? static_cast<size_t>(width) : 0;
}

size_t width_of(const std::string &text)
{
    size_t width = 0;
    each_character(text, [&](wchar_t character, const std::string &) { width += width_of(character); });
    return width;
}

std::string cut(const std::string &text, size_t width)
{
    if (width_of(text) <= width)
        return text;
    std::string begin;
    size_t used = 1; // the mark
    bool full = false;
    each_character(text, [&](wchar_t character, const std::string &bytes) {
        full = full || used + width_of(character) > width;
        if (full)
            return;
        used += width_of(character);
        begin += bytes;
    });
    return begin + cut_mark;
}

// The terminal's width; no limit where the output is no terminal. COLUMNS stands above both, as in other tools.
size_t screen_width()
{
    if (const char *columns = getenv("COLUMNS"))
        if (int width = atoi(columns); width > 0)
            return static_cast<size_t>(width);
    winsize size = {};
    return isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col ? size.ws_col : SIZE_MAX;
}

// Takes from the widest column that may be cut until the whole fits, which is true then, or nothing may be cut further.
bool fit(const std::vector<table_column> &columns, std::vector<size_t> &widths)
{
    size_t screen = screen_width();
    for (;;) {
        size_t whole = 0, widest = columns.size();
        for (size_t i = 0; i < columns.size(); i++) {
            whole += widths[i] + (i ? gap : 0);
            if (columns[i].may_cut && widths[i] > columns[i].least && (widest == columns.size() || widths[i] > widths[widest]))
                widest = i;
        }
        if (whole <= screen || widest == columns.size())
            return whole <= screen;
        widths[widest]--;
    }
}

// Leaves out the last column that may go; false when none may.
bool drop_column(text_table *table)
{
    for (size_t i = table->columns.size(); i-- > 0;) {
        if (!table->columns[i].may_go)
            continue;
        auto place = static_cast<std::ptrdiff_t>(i);
        table->columns.erase(table->columns.begin() + place);
        for (std::vector<std::string> &row : table->rows)
            row.erase(row.begin() + place);
        return true;
    }
    return false;
}

std::vector<size_t> widths_of(const text_table &table)
{
    std::vector<size_t> widths(table.columns.size(), 0);
    for (const std::vector<std::string> &row : table.rows)
        for (size_t i = 0; i < row.size(); i++)
            widths[i] = std::max(widths[i], width_of(row[i]));
    return widths;
}

void print_row(const text_table &table, const std::vector<size_t> &widths, const std::vector<std::string> &row)
{
    std::string line;
    for (size_t i = 0; i < row.size(); i++) {
        std::string cell = table.columns[i].may_cut ? cut(row[i], widths[i]) : row[i];
        std::string fill(widths[i] - std::min(widths[i], width_of(cell)), ' ');
        line += table.columns[i].right ? fill + cell : cell + fill;
        line.append(gap, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    puts(line.c_str());
}

} // namespace

std::string printable(const std::string &text)
{
    std::string clean;
    each_character(text, [&](wchar_t character, const std::string &bytes) {
        clean += iswprint(static_cast<wint_t>(character)) ? bytes : "?";
    });
    return clean;
}

void print_table(const text_table &table)
{
    text_table clean = {table.columns, {}};
    std::vector<std::string> headings;
    bool has_headings = false;
    for (const table_column &column : table.columns) {
        headings.push_back(column.heading);
        has_headings = has_headings || *column.heading;
    }
    if (has_headings)
        clean.rows.push_back(headings);
    for (const std::vector<std::string> &row : table.rows) {
        clean.rows.emplace_back();
        for (const std::string &cell : row)
            clean.rows.back().push_back(printable(cell));
    }
    std::vector<size_t> widths = widths_of(clean);
    while (!fit(clean.columns, widths) && drop_column(&clean))
        widths = widths_of(clean);
    for (const std::vector<std::string> &row : clean.rows)
        print_row(clean, widths, row);
}
