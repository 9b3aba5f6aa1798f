// Line files: text files with one record a line, whose name is the text before the first blank.
//
// The program never rewrites a record. Each edit holds a lock on the folder of the file, so that
// two processes that add and delete at once lose no record of each other and share the one work
// file in turns. (The lock is on the folder since the file itself is replaced, and since nothing
// is to be left behind.) What only reads opens the file under that lock, too: moved here from
// another file system, a file is away for a moment and then grows. While a deletion has it moved,
// PATH.cpectl-old is a second name of the old file; a process that finds that name under the lock
// brings the old file back, since the move was cut off.
#pragma once

#include <cstddef>
#include <cstdio>
#include <span>

// Takes the lock of a line file, and brings the file back when an edit of it was cut off. To be
// undone by folder_unlock().
int line_file_lock(const char* path);

// Opens the file for reading when nobody is editing it. What is open stays whole. Null on failure.
std::FILE* line_file_open(const char* path);

// Whether there is such a file, asked at such a time.
bool line_file_is_there(const char* path);

// Appends the whole content of a text file to the terminated text in `output`. Returns the number
// of bytes appended; -1 when the file cannot be opened. What does not fit is left out.
int file_content_get(const char* path, std::span<char> output);

// Appends the line and a newline; creates the file. Returns 0, or -1 when it cannot be opened or
// written.
int add_line(const char* line, const char* path);

// Deletes every line whose first word is a prefix of `name`, every line without a blank in its
// first 127 characters, and every line that begins with a blank; then saves to flash. A line
// longer than the 4094 characters that are read at once is kept or deleted whole. Returns 0, or -1
// when the file or the work file cannot be opened or written, or the path is too long for the
// command that moves the work file (83 characters); nothing has been changed then.
int del_line(const char* name, const char* path);

// The number of the first line whose first word begins with `name`, counted from 1 over the lines
// that hold a blank. Returns 0 when there is none, -1 when the file cannot be opened.
int find_name_which_line(const char* name, const char* path);

// Whether a line's first word begins with `name`, reading lines in pieces of line_size - 1
// characters (line_size at most 4096). Returns 1 or 0; -1 when the file cannot be opened.
int line_file_has(const char* name, const char* path, std::size_t line_size);
