// The text of a store; see entries.h. substitutes/README.md describes the format.
#include "store/entries.h"

#include <cstring>

// Where `what` first stands in `text`; text.size() when nowhere. (The member find() compares byte
// by byte in places; memchr is what makes a get cheap.)
static std::size_t byte_find(std::string_view text, char what) {
    const void* found = text.empty() ? nullptr : std::memchr(text.data(), what, text.size());
    return found ? static_cast<std::size_t>(static_cast<const char*>(found) - text.data())
                 : text.size();
}

static char* bytes_add(char* out, std::string_view bytes) {
    if (bytes.empty()) return out;
    std::memcpy(out, bytes.data(), bytes.size());
    return out + bytes.size();
}

bool key_valid(std::string_view key) {
    if (key.empty() || key.size() > kKeyMax) return false;
    for (char c : key)
        if (c == '=' || c == '\n' || c == '\r' || c == '\0') return false;
    return true;
}

// Moves the next line, without its newline, from `rest` to `line`. False at the end.
static bool line_next(std::string_view& rest, std::string_view& line) {
    if (rest.empty()) return false;
    const std::size_t length = byte_find(rest, '\n');
    line = {rest.data(), length};
    rest.remove_prefix(length < rest.size() ? length + 1 : length);
    return true;
}

bool entry_next(std::string_view& rest, Entry& entry) {
    std::string_view line;
    while (line_next(rest, line)) {
        const std::size_t equals = byte_find(line, '=');
        if (equals == 0 || equals == line.size()) continue;
        if (byte_find(line, '\0') != line.size()) continue;
        entry.line = line;
        entry.key = {line.data(), equals};
        entry.value = {line.data() + equals + 1, line.size() - equals - 1};
        return true;
    }
    return false;
}

// Where "\nKEY=" stands in a text for the first time; text.size() when nowhere. The text begins
// with a newline, as it were: -1 stands for that one.
static std::ptrdiff_t entry_place(std::string_view text, std::string_view key) {
    char wanted[kKeyMax + 2];
    wanted[0] = '\n';
    std::memcpy(wanted + 1, key.data(), key.size());
    wanted[key.size() + 1] = '=';
    const std::string_view first = {wanted + 1, key.size() + 1};
    if (text.size() >= first.size() && text[0] == first[0] &&
        std::memcmp(text.data(), first.data(), first.size()) == 0)
        return -1;
    const void* found = memmem(text.data(), text.size(), wanted, key.size() + 2);
    return found ? static_cast<const char*>(found) - text.data()
                 : static_cast<std::ptrdiff_t>(text.size());
}

bool entry_find(std::string_view content, std::string_view key, Entry& entry) {
    if (!key_valid(key)) return false;
    std::ptrdiff_t place;
    while (!content.empty() &&
           (place = entry_place(content, key)) < static_cast<std::ptrdiff_t>(content.size())) {
        content.remove_prefix(static_cast<std::size_t>(place + 1));
        const std::size_t size = byte_find(content, '\n');
        std::string_view line = {content.data(), size};
        if (entry_next(line, entry)) return true;
        content.remove_prefix(size);  // a NUL makes it no entry
    }
    return false;
}

// Takes the next byte of a value off its written form, which is not empty. A backslash that
// begins no escape stands for itself, so that a file written by hand keeps its meaning.
static char value_take(std::string_view& written) {
    const char first = written[0];
    const char second = written.size() > 1 ? written[1] : '\0';
    const bool escape = first == '\\' && (second == 'n' || second == 'r' || second == '\\');
    written.remove_prefix(escape ? 2 : 1);
    if (!escape) return first;
    return second == 'n' ? '\n' : second == 'r' ? '\r' : '\\';
}

std::size_t value_unescape(std::string_view written, char* out) {
    if (byte_find(written, '\\') == written.size()) {
        bytes_add(out, written);
        return written.size();
    }
    std::size_t size = 0;
    while (!written.empty())
        out[size++] = value_take(written);
    return size;
}

bool value_equals(std::string_view written, std::string_view value) {
    for (char c : value)
        if (written.empty() || value_take(written) != c) return false;
    return written.empty();
}

// The letter that follows the backslash in the escape of a byte; 0 for a byte that needs none.
static char escape_letter(char c) {
    return c == '\n' ? 'n' : c == '\r' ? 'r' : c == '\\' ? '\\' : '\0';
}

static char* entry_add(char* out, std::string_view key, std::string_view value) {
    out = bytes_add(out, key);
    *out++ = '=';
    for (char c : value) {
        const char letter = escape_letter(c);
        if (letter) *out++ = '\\';
        *out++ = letter ? letter : c;
    }
    *out++ = '\n';
    return out;
}

std::size_t content_edit_size(std::string_view content, std::string_view key,
                              const std::string_view* value) {
    const std::size_t last_newline = 1;  // a last line may come without one
    const std::size_t added = value ? key.size() + 2 * value->size() + 2 : 0;
    return content.size() + last_newline + added;
}

std::size_t content_edit(std::string_view content, std::string_view key,
                         const std::string_view* value, char* out) {
    char* const begin = out;
    Entry entry;
    while (entry_next(content, entry)) {
        if (entry.key != key) {
            out = bytes_add(out, entry.line);
            *out++ = '\n';
        } else if (value) {
            out = entry_add(out, key, *value);
            value = nullptr;  // it has its place; further entries of the key go
        }
    }
    if (value) out = entry_add(out, key, *value);
    return static_cast<std::size_t>(out - begin);
}
