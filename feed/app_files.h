// The catalogue on disk: the installed apps.conf (or, where none is installed, the one this program was built with), then the
// owner's additions. Read again when one of them changes.
#ifndef FEED_APP_FILES_H
#define FEED_APP_FILES_H

#include "feed/app_catalogue.h"

#include <sys/stat.h>

class app_files {
public:
    // An empty `installed` stands for the usual place. The additions may be missing.
    app_files(std::string installed, std::string additions);

    // Both files; what is wrong with them goes to standard error. False when a named `installed` cannot be read or holds no
    // app.
    bool read(app_catalogue *out);
    // Lines that the last read() left out, and files that are there and cannot be read.
    size_t skipped() const { return lines_skipped; }
    // Whether one of them is another than at the last read().
    bool have_changed() const;

private:
    struct seen_file {
        std::string path;
        struct stat about;
    };
    bool is_named;
    size_t lines_skipped = 0;
    seen_file files[2];
};

#endif
