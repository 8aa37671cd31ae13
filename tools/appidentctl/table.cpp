#include "tools/appidentctl/table.h"

#include <algorithm>
#include <stdio.h>
#include <string.h>

namespace {

size_t width_of(const std::string &text)
{
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

} // namespace

std::string printable(const std::string &text)
{
    std::string clean = text;
    for (char &c : clean)
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f)
            c = '?';
    return clean;
}

void print_table(const text_table &table)
{
    std::vector<size_t> widths(strlen(table.right_columns), 0);
    for (const auto &row : table.rows)
        for (size_t i = 0; i < row.size(); i++)
            widths[i] = std::max(widths[i], width_of(row[i]));
    for (const auto &row : table.rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); i++) {
            std::string cell = printable(row[i]);
            std::string fill(widths[i] - width_of(cell), ' ');
            line += table.right_columns[i] == 'r' ? fill + cell : cell + fill;
            line += "  ";
        }
        line.erase(line.find_last_not_of(' ') + 1);
        puts(line.c_str());
    }
}
