#include "home/spool_reader.h"

#include "common/guards.h"
#include "home/push_line.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

namespace {

constexpr size_t piece_size = 64 * 1024;

int64_t digest(const char *bytes, size_t length)
{
    uint64_t sum = 14695981039346656037ull;
    for (size_t i = 0; i < length; ++i)
        sum = (sum ^ static_cast<unsigned char>(bytes[i])) * 1099511628211ull;
    return static_cast<int64_t>(sum);
}

std::string path_of(const spool_reader &reader, const char *name)
{
    return reader.directory + "/" + name;
}

int open_file(const std::string &path)
{
    int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat about;
    if (file >= 0 && (fstat(file, &about) != 0 || !S_ISREG(about.st_mode))) {
        close(file);
        file = -1;
    }
    return file;
}

int64_t inode_at(const std::string &path)
{
    struct stat about;
    return stat(path.c_str(), &about) == 0 ? static_cast<int64_t>(about.st_ino) : 0;
}

int64_t inode_of(int file)
{
    struct stat about;
    return fstat(file, &about) == 0 ? static_cast<int64_t>(about.st_ino) : 0;
}

// Whether the file is the one that the place was reached in.
bool holds_place(int file, const spool_place &place)
{
    if (place.inode == 0 || inode_of(file) != place.inode)
        return false;
    std::string line(static_cast<size_t>(place.mark_length), '\0');
    ssize_t size = pread(file, line.data(), line.size(), place.offset - place.mark_length);
    return size == static_cast<ssize_t>(line.size()) && digest(line.data(), line.size()) == place.mark;
}

void start_file(spool_reader *reader, int file, bool from_begin)
{
    if (reader->file >= 0 && reader->file != file)
        close(reader->file);
    reader->file = file;
    reader->begun.clear();
    reader->too_long = false;
    reader->old_file = false;
    if (from_begin) {
        spool_place *place = reader->place;
        place->inode = inode_of(file);
        place->offset = place->mark_length = 0;
        place->mark = digest("", 0);
    }
    reader->read_at = reader->place->offset;
}

// The older of the two files, or the only one there is.
void start_anew(spool_reader *reader)
{
    fd_guard newer(open_file(path_of(*reader, "pushes.jsonl")));
    // Looked for after the newer one was opened: what was renamed in between is found here, and is older.
    fd_guard older(open_file(path_of(*reader, "pushes.jsonl.1")));
    if (older.get() >= 0)
        start_file(reader, older.release(), true);
    else if (newer.get() >= 0)
        start_file(reader, newer.release(), true);
}

// Lines were missed: the file that we were at is neither of the two any more.
void start_after_break(spool_reader *reader)
{
    reader->calls->broken(reader->context);
    start_anew(reader);
}

bool open_at_place(spool_reader *reader)
{
    for (const char *name : {"pushes.jsonl", "pushes.jsonl.1"}) {
        fd_guard file(open_file(path_of(*reader, name)));
        if (file.get() >= 0 && holds_place(file.get(), *reader->place)) {
            start_file(reader, file.release(), false);
            return true;
        }
    }
    bool first_start = reader->place->inode == 0;
    if (first_start)
        start_anew(reader);
    else if (inode_at(path_of(*reader, "pushes.jsonl")) != 0)
        start_after_break(reader);
    return reader->file >= 0;
}

// The file at hand is read to its end, for good.
void start_next_file(spool_reader *reader)
{
    if (!reader->begun.empty() || reader->too_long)
        reader->calls->cut(reader->context);
    int64_t ours = inode_of(reader->file);
    fd_guard next(open_file(path_of(*reader, "pushes.jsonl")));
    if (next.get() < 0)
        return;
    // Looked at after the next file was opened: then nothing can have come between the two.
    if (inode_at(path_of(*reader, "pushes.jsonl.1")) == ours)
        start_file(reader, next.release(), true);
    else
        start_after_break(reader);
}

void end_line(spool_reader *reader, int64_t next_line)
{
    spool_place *place = reader->place;
    std::string line;
    line.swap(reader->begun);
    line.push_back('\n');
    place->offset = next_line;
    place->mark_length = reader->too_long ? 0 : static_cast<int64_t>(line.size());
    place->mark = digest(line.data(), static_cast<size_t>(place->mark_length));
    line.pop_back();
    if (!reader->too_long && !line.empty())
        reader->calls->line(reader->context, line.c_str(), line.size());
    reader->too_long = false;
}

// Takes the whole lines of what has been read and keeps the rest.
void take_piece(spool_reader *reader, const char *piece, size_t size)
{
    for (size_t at = 0; at < size;) {
        const char *end = static_cast<const char *>(memchr(piece + at, '\n', size - at));
        size_t length = end ? static_cast<size_t>(end - piece) - at : size - at;
        if (!reader->too_long)
            reader->begun.append(piece + at, length);
        if (reader->begun.size() > push_line_limit) {
            reader->calls->too_long(reader->context);
            reader->too_long = true;
            reader->begun.clear();
        }
        at += length + (end ? 1 : 0);
        if (end)
            end_line(reader, reader->read_at + static_cast<int64_t>(at));
    }
    reader->read_at += static_cast<int64_t>(size);
}

// True when the place has become another one, and reading goes on there.
bool look_for_change(spool_reader *reader)
{
    if (reader->old_file) {
        start_next_file(reader);
        return !reader->old_file;
    }
    int64_t named = inode_at(path_of(*reader, "pushes.jsonl"));
    struct stat about;
    if (named != 0 && named != inode_of(reader->file)) {
        // What was written before it lost its name has still to be read.
        reader->old_file = true;
        return true;
    }
    if (fstat(reader->file, &about) != 0 || about.st_size >= reader->read_at)
        return false;
    // The daemon takes back half a line that found no room. Nobody but it shortens the file otherwise.
    bool all = about.st_size < reader->place->offset;
    if (all)
        reader->calls->broken(reader->context);
    start_file(reader, reader->file, all);
    return true;
}

} // namespace

bool read_spool_piece(spool_reader *reader)
{
    if (reader->file < 0 && !open_at_place(reader))
        return false;
    std::string piece(piece_size, '\0');
    ssize_t size = pread(reader->file, piece.data(), piece.size(), reader->read_at);
    if (size <= 0)
        return look_for_change(reader);
    take_piece(reader, piece.data(), static_cast<size_t>(size));
    return true;
}

void close_spool_reader(spool_reader *reader)
{
    if (reader->file >= 0)
        close(reader->file);
    reader->file = -1;
}

bool read_whole_spool(spool_reader *reader, const char *path, bool (*each_piece)(void *context))
{
    reader->file = open(path, O_RDONLY | O_CLOEXEC);
    if (reader->file < 0)
        return false;
    std::string piece(piece_size, '\0');
    ssize_t size = 0;
    bool go_on = true;
    while (go_on && (size = read(reader->file, piece.data(), piece.size())) > 0) {
        take_piece(reader, piece.data(), static_cast<size_t>(size));
        go_on = each_piece(reader->context);
    }
    if (go_on && !reader->begun.empty())
        end_line(reader, reader->read_at);
    close_spool_reader(reader);
    return go_on && size == 0;
}
