// Tables for people: columns as wide as their widest cell, counted in characters of UTF-8.
#ifndef APPIDENTCTL_TABLE_H
#define APPIDENTCTL_TABLE_H

#include <string>
#include <vector>

struct text_table {
    const char *right_columns;                  // one character a column, 'r' for right-justified
    std::vector<std::vector<std::string>> rows; // the first row is the heading
};

// Prints to standard output. Control characters in a cell, which a device's name may hold, print as '?'.
void print_table(const text_table &table);
std::string printable(const std::string &text);

#endif
