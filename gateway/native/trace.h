// The record of what a run did: one JSON object a line, appended by all processes of the gateway.
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

// Where the directory of the current run is mounted in the gateway.
#define RUN_DIR "/.gateway/run"

// Present in the environment of everything that a shell of the program starts; the value is the
// place of that shell's record in the trace.
#define SHELL_MARK "GATEWAY_SHELL"

// A line that grows while it is put together. Start from an all-zero record; `lost` is set when
// the memory did not suffice, and the line is not written then.
struct Line {
    char* text;
    size_t length;
    size_t room;
    bool lost;
};

// Appends bytes as they are.
void line_add(struct Line* line, const char* bytes, size_t count);

// Appends text as it is.
void line_text(struct Line* line, const char* text);

// Appends a number in decimal.
void line_number(struct Line* line, long long number);

// Appends text as a JSON string; bytes that are not UTF-8 become \udc80 to \udcff. Null text
// becomes the JSON word null.
void line_json(struct Line* line, const char* text);

// Appends the line and a newline to the trace with one write, so that lines of several processes
// do not mix, and releases it. Returns the offset behind the line, or -1 when there is no trace.
off_t trace_write(struct Line* line);

// Opens a file of the run's directory for reading, or returns null.
FILE* run_file(const char* name);

// Takes the next word of a line that the gateway's preparation wrote: blanks separate them. The
// word is cut out of the line in place. Null at the end of the line.
char* word_next(char** rest);

// Decodes hexadecimal digits in place ("-" stands for no bytes) and ends the result with a NUL.
// Returns the number of bytes.
size_t hex_decode(char* text);
