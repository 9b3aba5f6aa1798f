// Text in fixed buffers, and reading words and lines out of text.
#include "tools/text.h"

#include <cstring>

bool text_copy(std::span<char> out, std::string_view from) {
    if (out.empty()) return false;
    const std::string_view fits = text_head(from, out.size() - 1);
    if (!fits.empty()) std::memcpy(out.data(), fits.data(), fits.size());
    out[fits.size()] = '\0';
    return fits.size() == from.size();
}

bool text_append(std::span<char> out, std::string_view from) {
    const std::size_t held = strnlen(out.data(), out.size());
    return text_copy({out.data() + held, out.size() - held}, from);
}

bool text_print(std::span<char> out, const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    const bool whole = text_vprint(out, format, args);
    va_end(args);
    return whole;
}

bool text_vprint(std::span<char> out, const char* format, std::va_list args) {
    if (out.empty()) return false;
    const int length = std::vsnprintf(out.data(), out.size(), format, args);
    if (length < 0) out[0] = '\0';
    return length >= 0 && static_cast<std::size_t>(length) < out.size();
}

std::string_view text_until(std::string_view text, std::string_view stops) {
    std::size_t length = 0;
    while (length < text.size() && !std::memchr(stops.data(), text[length], stops.size()))
        length++;
    return {text.data(), length};
}

std::size_t text_find(std::string_view text, std::string_view what) {
    if (text.empty()) return 0;  // it may have no address
    const void* found = memmem(text.data(), text.size(), what.data(), what.size());
    if (!found) return text.size();
    return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

bool begins_with(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           std::memcmp(text.data(), prefix.data(), prefix.size()) == 0;
}

bool take_word(std::string_view& rest, std::string_view& word) {
    if (rest.empty()) return false;
    word = text_until(rest, " ");
    rest = text_tail(rest, word.size() + 1);
    return true;
}

bool next_line(std::FILE* file, std::span<char> line) {
    return std::fgets(line.data(), static_cast<int>(line.size()), file) != nullptr;
}
