// The text of a store as this process has read it last: a command that asks for many keys reads the
// file once, and asks the system each time only whether it is still the same.
#pragma once

#include <cstdint>

#include "store/whole_file.h"

// A place for such a text; starts all zero.
struct Latest {
    bool busy;     // some thread works on it
    bool lasting;  // the mark tells every later change
    FileMark mark;
    FileContent content;  // null data: nothing was read yet
};

// Takes the place for this thread, until latest_release(). False when another thread has it.
[[nodiscard]] bool latest_take(Latest& latest);
void latest_release(Latest& latest);

// Whether the text is what a file with this mark holds, for certain.
[[nodiscard]] bool latest_is(const Latest& latest, const FileMark& mark);

// The time for latest_set(), in nanoseconds since 1970.
std::int64_t latest_now();

// Puts a text into the place, which takes over its buffer; `before` is when its reading began.
void latest_set(Latest& latest, const FileContent& content, const FileMark& mark,
                std::int64_t before);
