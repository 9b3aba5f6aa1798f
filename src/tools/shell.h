// The shell: command texts with values in them, and running them.
//
// All commands of the program go through here. What they create only its user may write to. A
// command text is fixed; shell_print() alone puts values into one, so that the shell hands a script
// exactly the value and executes nothing of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// What system_operate() captures at most, in bytes.
inline constexpr std::size_t kCaptureSize = 2048;

// A value for a command text: text or a whole number.
struct ShellValue {
    std::string_view text;
    std::int32_t number = 0;
    bool is_number = false;

    constexpr ShellValue(const char* value) : text(value) {}
    constexpr ShellValue(std::string_view value) : text(value) {}
    constexpr ShellValue(std::int32_t value) : number(value), is_number(true) {}
};

// Builds a command text: each "%s" or "%d" of `format` is replaced by the next of `values`.
//   outside quotes      a value made only of A-Z a-z 0-9 _ @ % + = : , . / - stands as it is, an
//                       empty one too; any other becomes one single-quoted word
//   inside '...'        as it is, each single quote of it escaped
//   inside "..."        as it is, each of " $ ` \ escaped
// False when the text does not fit; `out` is then empty and nothing may be run.
[[nodiscard]] bool shell_print(std::span<char> out, const char* format,
                               std::span<const ShellValue> values);

template <typename... Values>
[[nodiscard]] bool shell_print(std::span<char> out, const char* format, Values... values) {
    const ShellValue list[] = {ShellValue(values)...};
    return shell_print(out, format, std::span<const ShellValue>(list));
}

// Runs a command and waits for it (a text that ends in "&" returns at once). The wait status as
// system(3) gives it; -1 when no process can be made.
int shell_run(const char* command);

// Runs a command and captures what it prints: at most kCaptureSize bytes, up to the first NUL, one
// final newline removed, cut to what fits into `output`, which is terminated. The command's exit
// status is not looked at. Returns 0; -1 when the command is null or cannot be started, or
// `output` is empty.
int system_operate(const char* command, std::span<char> output);

// Writes the running NVRAM to flash with the gateway's script. As system_operate().
int config_save();

// Applies the LAN settings with the gateway's script, in the background. The result of the second
// of its two commands, as system_operate().
int lan_conf();

// Prints on the console, printf-style, at most 1023 characters. Returns the number of characters
// formatted, also when there is no console to write to.
__attribute__((format(printf, 1, 2))) int cpectl_printf(const char* format, ...);
