// What cpectl-platform-check says, and the process of its own in which each check runs.
#pragma once

#include <cstdint>

struct Options {
    bool read_only;         // nothing is set or committed
    std::uint32_t seconds;  // how long one library may take
};

// One line each: something is as it should be; something keeps cpectl from working rightly;
// something could not be found out, or is worth knowing. Lines end where a terminal's do not
// break: 200 characters.
[[gnu::format(printf, 1, 2)]] void say_ok(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void say_wrong(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void say_note(const char* format, ...);

// Notes what is done next, for the case that the library crashes or never returns; clears errno.
[[gnu::format(printf, 1, 2)]] void doing(const char* format, ...);

// What the system says about the call that failed last, in brackets, or nothing: libraries need not
// set errno. doing() has to come before the call.
const char* cause();

// The number of times that say_wrong() was called, in all processes together.
std::uint32_t wrongs();

// Whether `size` bytes can be read at `address`, asked without reading them.
bool is_readable(const void* address, std::uint32_t size);

// Whether `text` is an IPv4 address in dotted form.
bool is_address(const char* text);

// Writes up to `size` - 1 characters of foreign bytes to `out`, each unprintable one as '?'.
void printable(char* out, std::uint32_t size, const char* from, std::uint32_t length);

// Prints a headline and runs the check in a process of its own. A crash, a check that takes longer
// than allowed, and anything that the library prints on standard output are reported as wrong.
// False when no process could be made.
bool run_apart(const char* title, void (*check)(const Options&), const Options& options);
