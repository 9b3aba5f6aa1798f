// What the recording libraries share: each call is written to the trace with its arguments and its
// result, and forwarded to the stock library of the same name unless the run prepares an answer.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#include "../trace.h"

#define EXPORTED __attribute__((visibility("default")))

// The function of this name in /platform/LIBRARY, or null when there is none. Looks it up once a
// call; the caller casts it.
void* stock_find(const char* library, const char* function);

// Whether the run says that this call fails.
bool call_fails(const char* function);

// A copy of a getter's text (or null), and the end of the copy before it, which `last` keeps: the
// texts of these libraries are good until their next call only, as those of a vendor's may be.
char* text_hand_out(const char* text, char** last);

// Starts a record; arguments are appended with the two functions below, and one of the ends
// writes it. `line` starts all zero.
void call_begin(struct Line* line, const char* function);
void call_add_text(struct Line* line, const char* argument);
void call_add_number(struct Line* line, long long argument);
void call_end_text(struct Line* line, const char* result);
void call_end_number(struct Line* line, long long result);
void call_end_nothing(struct Line* line);
