#include "feed/app_files.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

// Of the generated file: catalogue/apps.conf as it was at build time.
extern const char *const built_in_apps;

namespace {

constexpr size_t most_complaints_told = 20;

struct stat look_at(const std::string &path)
{
    struct stat about {};
    if (stat(path.c_str(), &about) != 0)
        about = {};
    return about;
}

bool is_same(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size && a.st_ctim.tv_sec == b.st_ctim.tv_sec &&
           a.st_ctim.tv_nsec == b.st_ctim.tv_nsec; // of rights, too
}

} // namespace

app_files::app_files(std::string installed, std::string additions)
    : is_named(!installed.empty()), files{{is_named ? std::move(installed) : INSTALLED_APPS, {}}, {std::move(additions), {}}}
{
}

bool app_files::read(app_catalogue *out)
{
    *out = {};
    std::vector<std::string> complaints;
    for (seen_file &file : files)
        file.about = look_at(file.path);
    size_t files_skipped = 0;
    auto read_file = [&](const std::string &path) {
        if (read_apps(path, out, &complaints))
            return true;
        if (errno != ENOENT) { // one that may not be read, for example
            fprintf(stderr, "appident-feed: %s: %s; file skipped\n", path.c_str(), strerror(errno));
            files_skipped++;
        }
        return false;
    };
    bool has_installed = read_file(files[0].path);
    if (!has_installed && !is_named)
        read_apps_text("built-in apps.conf", built_in_apps, out, &complaints);
    read_file(files[1].path);
    lines_skipped = complaints.size() + files_skipped;
    for (size_t i = 0; i < complaints.size() && i < most_complaints_told; i++)
        fprintf(stderr, "appident-feed: %s; line skipped\n", complaints[i].c_str());
    if (complaints.size() > most_complaints_told)
        fprintf(stderr, "appident-feed: %zu more lines skipped\n", complaints.size() - most_complaints_told);
    return (has_installed || !is_named) && !out->apps.empty();
}

bool app_files::have_changed() const
{
    for (const seen_file &file : files)
        if (!is_same(file.about, look_at(file.path)))
            return true;
    return false;
}
