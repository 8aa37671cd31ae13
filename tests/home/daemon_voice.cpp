#include "tests/home/daemon_voice.h"

#include "home/joining.h"

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <fstream>

scratch_directory::scratch_directory()
{
    char name[] = "/tmp/appident-home-test-XXXXXX";
    path = mkdtemp(name);
}

scratch_directory::~scratch_directory()
{
    output_of("rm -rf '" + path + "'");
}

void write_file(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string output_of(const std::string &command, int *status)
{
    std::string text;
    FILE *pipe = popen(command.c_str(), "r");
    char piece[4096];
    for (size_t size = 0; pipe && (size = fread(piece, 1, sizeof(piece), pipe)) > 0;)
        text.append(piece, size);
    int ended = pipe ? pclose(pipe) : -1;
    if (status)
        *status = ended;
    return text;
}

void take_text(history *of, const std::string &text)
{
    for (size_t begin = 0, end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
        std::string line = text.substr(begin, end - begin);
        take_line(of, line.c_str(), line.size());
    }
}

void history_test::SetUp()
{
    setenv("TZ", "UTC", 1);
    tzset();
    daemon.time = evening;
    begin();
}

bool history_test::begin(const char *vfs)
{
    std::string why;
    all = history();
    bool done = open_history(&all, path, {vfs, false}, &why);
    EXPECT_TRUE(done) << why;
    return done;
}

void history_test::take()
{
    take_text(&all, daemon.text);
    daemon.text.clear();
}

int64_t history_test::value_of(const std::string &sql)
{
    sqlite3_stmt *read = nullptr;
    int64_t value = -1;
    if (sqlite3_prepare_v2(all.db.handle, sql.c_str(), -1, &read, nullptr) == SQLITE_OK && sqlite3_step(read) == SQLITE_ROW)
        value = sqlite3_column_int64(read, 0);
    sqlite3_finalize(read);
    return value;
}
