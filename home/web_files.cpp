// The page itself: files of one directory and those below it.
#include "home/web_connection.h"
#include "home/web_routes.h"

#include <ctype.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

namespace {

constexpr size_t path_most = 128;

constexpr struct {
    const char *end, *type;
} types[] = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".json", "application/json"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".ico", "image/x-icon"},
    {".webmanifest", "application/manifest+json"},
};

const char *type_of(const std::string &path)
{
    for (const auto &one : types) {
        size_t length = strlen(one.end);
        if (path.size() > length && path.compare(path.size() - length, length, one.end) == 0)
            return one.type;
    }
    return nullptr;
}

// Names that begin with a letter or a digit, so that no path leads out of the directory or to a hidden file.
bool is_plain(const std::string &path)
{
    bool begins = true;
    for (size_t i = 1; i < path.size(); ++i) {
        bool word = isalnum(static_cast<unsigned char>(path[i])) != 0;
        if (begins ? !word : !word && !strchr("-_./", path[i]))
            return false;
        begins = path[i] == '/';
    }
    return path.size() <= path_most && path[0] == '/' && !begins;
}

} // namespace

void answer_file(web_request *asked, web_answer *answer)
{
    std::string path = asked->path == "/" ? "/index.html" : asked->path;
    const char *type = type_of(path);
    struct stat about;
    if (!type || !is_plain(path))
        return refuse(answer, refused_not_found);
    fd_guard file(open((asked->server->settings.files + path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.get() < 0 || fstat(file.get(), &about) != 0 || !S_ISREG(about.st_mode))
        return refuse(answer, refused_not_found);
    std::string tag = "\"" + std::to_string(about.st_mtim.tv_sec) + "-" + std::to_string(about.st_mtim.tv_nsec) + "-" +
                      std::to_string(about.st_size) + "\"";
    bool known = header_value(*asked, "If-None-Match") == tag;
    if (known)
        answer->response = MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT);
    else
        answer->response = MHD_create_response_from_fd64(static_cast<uint64_t>(about.st_size), file.get());
    if (!answer->response)
        return refuse(answer, refused_busy);
    if (known)
        answer->status = MHD_HTTP_NOT_MODIFIED;
    else
        file.release();
    answer->type = type;
    // Asked for each time, so that an update of the package shows at once.
    answer->headers.push_back({"Cache-Control", "no-cache"});
    answer->headers.push_back({"ETag", tag});
}
