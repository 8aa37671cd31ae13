// The log: one file of timestamped lines, emptied when it would pass 2 MiB, standard output when it cannot be opened.
//
// Any thread may log at any time; a line is one write on an appending descriptor. The size is tracked without a lock: drift
// under concurrent use only moves the moment of emptying.
#ifndef COMMON_LOG_H
#define COMMON_LOG_H

extern int default_level;           // highest level written
extern const char *log_file;        // path
extern int log_fd;                  // open descriptor, -1 when closed
extern unsigned long log_file_size; // bytes believed to be in the file

// Opens the log for appending; empties one that is already over the limit. What is not a device or a file of our own with this
// one name is replaced by a new file; where that cannot be, lines go to standard output.
void url_check_init(void);
// Writes "[time]" and the text as one line when level <= default_level; a text is cut at 4096 characters of line.
void url_check_log(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));
void url_check_cleanup(void);

#endif
