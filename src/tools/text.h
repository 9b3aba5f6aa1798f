// Text in fixed buffers, and reading words and lines out of text.
//
// All writers below know the size of their buffer, always terminate, and say when they had to cut.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <span>
#include <string_view>

// Copies `from` and terminates. False when it was cut to fit.
bool text_copy(std::span<char> out, std::string_view from);

// Appends `from` to the terminated text in `out`. False when it was cut to fit.
bool text_append(std::span<char> out, std::string_view from);

// printf into a buffer. False when the text was cut, or could not be formatted (then empty).
__attribute__((format(printf, 2, 3))) bool text_print(std::span<char> out, const char* format, ...);
__attribute__((format(printf, 2, 0))) bool text_vprint(std::span<char> out, const char* format,
                                                       std::va_list args);

// The first `count` characters of `text`, or all of it when it is shorter. (The member substr()
// can throw, which this program is built without.)
constexpr std::string_view text_head(std::string_view text, std::size_t count) {
    return {text.data(), count < text.size() ? count : text.size()};
}

// `text` without its first `count` characters; empty when it is not longer than that.
constexpr std::string_view text_tail(std::string_view text, std::size_t count) {
    const std::size_t cut = count < text.size() ? count : text.size();
    return {text.data() + cut, text.size() - cut};
}

// The text up to its first character that is one of `stops`; all of it when there is none.
std::string_view text_until(std::string_view text, std::string_view stops);

// Where `what` first stands in `text`; text.size() when nowhere.
std::size_t text_find(std::string_view text, std::string_view what);

bool begins_with(std::string_view text, std::string_view prefix);

// Moves the word up to the next blank (or the end) from `rest` to `word` and eats that one blank.
// False, with both untouched, when nothing is left.
bool take_word(std::string_view& rest, std::string_view& word);

// Reads the next line, its newline included, at most size - 1 characters of it; the rest of a
// longer line is read next. False at the end of the file.
bool next_line(std::FILE* file, std::span<char> line);
