// Line files: text files with one record a line, whose name is the text before the first blank.
//
// The program never rewrites a record. Each edit holds a lock on the folder of the file, so that
// two processes that add and delete at once lose no record of each other and share the one work
// file in turns. (The lock is on the folder since the file itself is replaced, and since nothing
// is to be left behind.) A search opens the file under that lock, too.
#pragma once

#include <cstddef>
#include <span>

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
