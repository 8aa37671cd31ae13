// Tables for people: columns as wide as their widest cell on the screen, cut to the terminal's width.
#ifndef APPIDENTCTL_TABLE_H
#define APPIDENTCTL_TABLE_H

#include <string>
#include <vector>

struct table_column {
    const char *heading;
    bool right = false;   // right-justified, as numbers are
    bool may_cut = false; // its cells may be cut, with "…" at the end, where the terminal is too narrow
    size_t least = 8;     // but not to less than this
    bool may_go = false;  // it is left out where cutting alone does not do
};

struct text_table {
    std::vector<table_column> columns;
    std::vector<std::vector<std::string>> rows; // a cell for each column
};

// Prints to standard output, with a line of headings unless they are all empty.
void print_table(const text_table &table);

// Control characters, which a device's name may hold, and bytes that are no UTF-8 as '?'.
std::string printable(const std::string &text);

#endif
