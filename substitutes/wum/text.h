// The texts of hostapd's answers.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

struct Mac {
    std::uint8_t bytes[6];
};

// Reads a MAC address that is the whole text: six two-digit hexadecimal groups joined by ":" or by
// "-". False for anything else.
[[nodiscard]] bool mac_read(std::string_view text, Mac& mac);

// Moves the first line of `rest`, without its newline, to `line`. False when `rest` is empty.
[[nodiscard]] bool line_take(std::string_view& rest, std::string_view& line);

// The rest of the first line that begins with `name`. False when there is none.
[[nodiscard]] bool line_value(std::string_view text, std::string_view name,
                              std::string_view& value);

// Writes the bytes that an escaped text stands for, cut and terminated to fit. The daemon escapes
// quotes, backslashes and all that is not printable ASCII.
void unescape(std::string_view text, std::span<char> out);
