// Another process that reads a key: what it sees does not depend on what this one remembers.
#include "reader.h"

#include <unistd.h>

#include <cstring>

#include "tools/platform_library.h"

namespace {

using Getter = char*(const char*);

// The reader's answers begin with one of these.
constexpr char kValue = 'v';
constexpr char kAbsent = 'a';
constexpr char kFailed = 'f';

bool write_all(int fd, const char* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t written = write(fd, bytes, length);
        if (written <= 0) return false;
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
    return true;
}

// Reads to the end of the pipe, at most `size` - 1 bytes.
std::size_t read_all(int fd, char* out, std::size_t size) {
    std::size_t length = 0;
    while (length + 1 < size) {
        const ssize_t count = read(fd, out + length, size - 1 - length);
        if (count <= 0) break;
        length += static_cast<std::size_t>(count);
    }
    out[length] = '\0';
    return length;
}

[[noreturn]] void reader_process(const char* soname, const char* getter, int ask, int answer) {
    char key[128];
    if (read_all(ask, key, sizeof key) == 0) _exit(0);  // nobody asked
    auto* get = reinterpret_cast<Getter*>(library_symbol(soname, getter));
    const char* value = get ? get(key) : nullptr;
    const char kind = value ? kValue : get ? kAbsent : kFailed;
    (void)write_all(answer, &kind, 1);
    if (value) (void)write_all(answer, value, std::strlen(value));
    _exit(0);
}

}  // namespace

Reader reader_start(const char* soname, const char* getter) {
    int ask[2];
    int answer[2];
    if (pipe(ask) != 0 || pipe(answer) != 0) return {};
    const pid_t process = fork();
    if (process == 0) {
        close(ask[1]);
        close(answer[0]);
        reader_process(soname, getter, ask[0], answer[1]);
    }
    close(ask[0]);
    close(answer[1]);
    return {ask[1], answer[0], process > 0};
}

Read reader_ask(Reader& reader, const char* key, char* out, std::uint32_t size) {
    if (!reader.running) return Read::failed;
    reader.running = false;
    const bool asked = write_all(reader.ask, key, std::strlen(key));
    close(reader.ask);

    char kind = kFailed;
    if (!asked || read(reader.answer, &kind, 1) != 1) kind = kFailed;
    *out = '\0';
    if (kind == kValue) read_all(reader.answer, out, size);
    close(reader.answer);
    return kind == kValue ? Read::value : kind == kAbsent ? Read::absent : Read::failed;
}
