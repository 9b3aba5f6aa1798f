// The shell: command texts with values in them, and running them.
#include "tools/shell.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/text.h"

namespace {

// A command text under construction. Once something did not fit, nothing more is added.
struct CommandText {
    std::span<char> out;
    std::size_t length = 0;
    bool fits = true;
};

void put(CommandText& text, std::string_view piece) {
    text.fits = text.fits && piece.size() < text.out.size() - text.length;
    if (!text.fits) return;
    std::memcpy(text.out.data() + text.length, piece.data(), piece.size());
    text.length += piece.size();
}

void put(CommandText& text, char c) {
    put(text, std::string_view(&c, 1));
}

// Whether the shell takes the character as it is, outside quotes as well.
bool is_harmless(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           (c != '\0' && std::strchr("_@%+=:,./-", c));
}

bool is_harmless(std::string_view value) {
    for (const char c : value) {
        if (!is_harmless(c)) return false;
    }
    return true;
}

void put_inside_single_quotes(CommandText& text, std::string_view value) {
    for (const char c : value) {
        if (c == '\'')
            put(text, "'\\''");  // ends the quotes, adds one, begins them again
        else
            put(text, c);
    }
}

void put_inside_double_quotes(CommandText& text, std::string_view value) {
    for (const char c : value) {
        if (c != '\0' && std::strchr("\"$`\\", c)) put(text, '\\');
        put(text, c);
    }
}

// A value where no quotes are open: as it stands, or as one single-quoted word.
void put_word(CommandText& text, std::string_view value) {
    if (is_harmless(value)) {
        put(text, value);
        return;
    }
    put(text, '\'');
    put_inside_single_quotes(text, value);
    put(text, '\'');
}

// A value where the quote `open` (or none: '\0') is open in the command text.
void put_value(CommandText& text, const ShellValue& value, char open) {
    char digits[12];
    std::string_view chars = value.text;
    if (value.is_number) {
        (void)text_print(digits, "%d", value.number);
        chars = digits;
    }
    if (open == '\'')
        put_inside_single_quotes(text, chars);
    else if (open == '"')
        put_inside_double_quotes(text, chars);
    else
        put_word(text, chars);
}

// What a stream gives up to its end, or to the end of `buffer`. Returns the number of bytes.
std::size_t read_all(std::FILE* stream, std::span<char> buffer) {
    std::size_t held = 0;
    while (held < buffer.size() && !std::feof(stream)) {
        const std::size_t got = std::fread(buffer.data() + held, 1, buffer.size() - held, stream);
        if (got == 0) break;  // at the end, or a read that failed
        held += got;
    }
    return held;
}

// Whatever mask the caller left: what the shell creates, in /tmp say, others may not write to.
void others_keep_out() {
    constexpr mode_t kOthersWrite = S_IWGRP | S_IWOTH;
    const mode_t mask = umask(kOthersWrite);
    if ((mask | kOthersWrite) != kOthersWrite) umask(mask | kOthersWrite);
}

}  // namespace

bool shell_print(std::span<char> out, const char* format, std::span<const ShellValue> values) {
    CommandText text{out};
    char open = '\0';
    std::size_t next = 0;
    for (const char* at = format; *at; at++) {
        if (*at == '%' && (at[1] == 's' || at[1] == 'd') && next < values.size()) {
            put_value(text, values[next++], open);
            at++;
            continue;
        }
        if (open == '\0' && (*at == '\'' || *at == '"'))
            open = *at;
        else if (*at == open)
            open = '\0';
        put(text, *at);
    }
    if (!out.empty()) out[text.fits ? text.length : 0] = '\0';
    return text.fits && !out.empty();
}

int shell_run(const char* command) {
    others_keep_out();
    return std::system(command);
}

int system_operate(const char* command, std::span<char> output) {
    if (!command || output.empty()) return -1;
    others_keep_out();
    std::FILE* stream = popen(command, "r");
    if (!stream) return -1;

    char captured[kCaptureSize] = {};
    const std::size_t held = read_all(stream, captured);
    pclose(stream);

    std::string_view text(captured, strnlen(captured, held));
    if (!text.empty() && text.back() == '\n') text.remove_suffix(1);
    (void)text_copy(output, text);
    return 0;
}

int config_save() {
    char output[kCaptureSize] = {};
    return system_operate("/usr/sbin/ui.sh flash >/dev/null", output);
}

int lan_conf() {
    char output[kCaptureSize] = {};
    // Kept: "2 >" hands the script a literal 2 and redirects its standard output twice.
    system_operate("/usr/sbin/network.sh lanconf  >/dev/null 2 >/dev/null &", output);
    return system_operate("/usr/sbin/network.sh lanmode  >/dev/null 2 >/dev/null &", output);
}

int cpectl_printf(const char* format, ...) {
    char text[1024] = {};
    std::va_list args;
    va_start(args, format);
    (void)text_vprint(text, format, args);
    va_end(args);

    const std::size_t length = std::strlen(text);
    const int console = open("/dev/console", O_WRONLY | O_NOCTTY | O_CLOEXEC);
    if (console >= 0) {
        if (write(console, text, length) < 0) {
            // A console that takes nothing is nobody's business here.
        }
        close(console);
    }
    return static_cast<int>(length);
}
