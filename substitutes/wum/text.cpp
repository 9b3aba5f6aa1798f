// hostapd's texts; see text.h.
#include "wum/text.h"

#include <string.h>

// The value of a hexadecimal digit, -1 for any other character.
static int digit_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

static bool byte_read(const char* digits, std::uint8_t& byte) {
    const int high = digit_value(digits[0]);
    const int low = digit_value(digits[1]);
    if (high < 0 || low < 0) return false;
    byte = static_cast<std::uint8_t>(high * 16 + low);
    return true;
}

bool mac_read(std::string_view text, Mac& mac) {
    constexpr std::size_t kGroup = 3;  // two digits and what joins them
    constexpr std::size_t kGroups = sizeof mac.bytes;
    if (text.size() != kGroups * kGroup - 1) return false;
    Mac read;
    for (std::size_t i = 0; i < kGroups; i++) {
        if (!byte_read(&text[i * kGroup], read.bytes[i])) return false;
        if (i + 1 == kGroups) break;
        const char join = text[i * kGroup + 2];
        if (join != ':' && join != '-') return false;
    }
    mac = read;
    return true;
}

bool line_take(std::string_view& rest, std::string_view& line) {
    if (rest.empty()) return false;
    const void* newline = memchr(rest.data(), '\n', rest.size());
    const std::size_t length =
        newline ? static_cast<std::size_t>(static_cast<const char*>(newline) - rest.data())
                : rest.size();
    line = {rest.data(), length};
    rest.remove_prefix(newline ? length + 1 : length);
    return true;
}

// (The member starts_with() can throw, which these libraries are built without.)
static bool begins_with(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && memcmp(text.data(), prefix.data(), prefix.size()) == 0;
}

bool line_value(std::string_view text, std::string_view name, std::string_view& value) {
    std::string_view line;
    while (line_take(text, line)) {
        if (!begins_with(line, name)) continue;
        line.remove_prefix(name.size());
        value = line;
        return true;
    }
    return false;
}

// Takes the next byte of an escaped text, which is not empty.
static char byte_take(std::string_view& text) {
    const char first = text[0];
    text.remove_prefix(1);
    if (first != '\\' || text.empty()) return first;

    const char kind = text[0];
    text.remove_prefix(1);
    if (kind == 'n') return '\n';
    if (kind == 'r') return '\r';
    if (kind == 't') return '\t';
    if (kind == 'e') return '\033';
    std::uint8_t byte;
    if (kind != 'x' || text.size() < 2 || !byte_read(text.data(), byte)) return kind;
    text.remove_prefix(2);
    return static_cast<char>(byte);
}

void unescape(std::string_view text, std::span<char> out) {
    std::size_t size = 0;
    while (!text.empty() && size + 1 < out.size())
        out[size++] = byte_take(text);
    out[size] = '\0';
}
