// The texts that a library has given out: they stay valid until the process ends.
#pragma once

#include <string_view>

// Takes over `text` (made by malloc; may be null) as a value of `key`, and returns what to give
// out for it: the same text, or the equal one that was given out for this key before, so that a
// process that asks again and again for the same does not grow. Null for null, and when there is
// no memory. Can be called by several threads at once.
char* text_keep(std::string_view key, char* text);
