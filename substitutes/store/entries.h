// The text of a store: KEY=VALUE lines in memory, read and edited without touching a file.
#pragma once

#include <cstddef>
#include <string_view>

inline constexpr std::size_t kKeyMax = 255;          // bytes of a key
inline constexpr std::size_t kValueMax = 65535;      // bytes of a value, before escaping
inline constexpr std::size_t kContentMax = 1 << 20;  // bytes of a whole store

// One line of a store. The views point into the store's text.
struct Entry {
    std::string_view line;  // the whole line, without its newline
    std::string_view key;
    std::string_view value;  // as it is written, that is, escaped
};

// Whether a key can stand in a store: 1 to kKeyMax bytes without '=', newline, carriage return.
bool key_valid(std::string_view key);

// Moves the next entry from `rest` to `entry`; passes over lines that are no entries: those
// without '=', with nothing before it, or with a NUL. False when there is none left.
bool entry_next(std::string_view& rest, Entry& entry);

// Finds the first entry of a key. False when there is none.
bool entry_find(std::string_view content, std::string_view key, Entry& entry);

// Writes a value that is read from an entry to `out`, which has room for as many bytes as the
// written value has. Returns the number of bytes; nothing terminates them.
std::size_t value_unescape(std::string_view written, char* out);

// Whether an entry's written value stands for `value`.
bool value_equals(std::string_view written, std::string_view value);

// The room that content_edit() needs at most.
std::size_t content_edit_size(std::string_view content, std::string_view key,
                              const std::string_view* value);

// Writes `content` to `out`, with the key's value replaced in its place or added at the end, or
// removed when `value` is null. Lines that are no entries and further entries of the key are left
// out. Returns the number of bytes written.
std::size_t content_edit(std::string_view content, std::string_view key,
                         const std::string_view* value, char* out);
