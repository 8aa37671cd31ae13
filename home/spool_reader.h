// Reads the daemon's spool, pushes.jsonl and pushes.jsonl.1, line by line across its rotations, from a place that its owner
// keeps.
#ifndef HOME_SPOOL_READER_H
#define HOME_SPOOL_READER_H

#include <stddef.h>
#include <stdint.h>

#include <string>

// The spool file that is followed, 0 for none, and what has been taken of it; the mark is a digest of the last line taken, as
// another file may get the same inode.
struct spool_place {
    int64_t inode = 0, offset = 0, mark = 0, mark_length = 0;
};

struct spool_calls {
    // A line without its line feed; `text` ends with a NUL at `length`. The place is behind it already.
    void (*line)(void *context, const char *text, size_t length);
    void (*too_long)(void *context); // a line longer than push_line_limit is passed over
    void (*cut)(void *context);      // a file ends within a line
    void (*broken)(void *context);   // what lies between the last line and the next is unknown
};

struct spool_reader {
    std::string directory; // holds the spool
    spool_place *place = nullptr;
    const spool_calls *calls = nullptr;
    void *context = nullptr;
    int file = -1;         // the spool file being read
    int64_t read_at = 0;   // the next byte to read of it
    std::string begun;     // bytes of a line whose end has not been read
    bool too_long = false; // within a line that is passed over
    bool old_file = false; // another file has taken its name: what it holds now is all it will hold
};

// Reads a piece of what is there. False when there is nothing more for now.
bool read_spool_piece(spool_reader *reader);
// The next piece is looked for from the place on.
void close_spool_reader(spool_reader *reader);

// Takes in a whole file that does not grow, a piece at a time, `each_piece` after each. False when it cannot be read.
bool read_whole_spool(spool_reader *reader, const char *path, bool (*each_piece)(void *context));

#endif
