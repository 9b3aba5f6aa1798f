// Line files: text files with one record a line, whose name is the text before the first blank.
#include "tools/line_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "tools/file.h"
#include "tools/shell.h"
#include "tools/text.h"

namespace {

constexpr char kWorkFile[] = "/tmp/cpectl_tmp_write_file";
constexpr std::size_t kLineSize = 4096;
constexpr std::size_t kLineLimit = kLineSize - 1;  // as given to fgets: 4094 characters are read
constexpr std::size_t kNameSize = 128;
constexpr std::size_t kPathSize = 256;

// Writes the line and a newline at the end of the file, whole or not at all.
bool line_append(int file, const char* line) {
    struct stat before;
    if (fstat(file, &before) != 0) return false;
    char newline = '\n';
    const std::size_t length = std::strlen(line);
    const iovec parts[] = {{const_cast<char*>(line), length}, {&newline, 1}};
    if (writev(file, parts, 2) == static_cast<ssize_t>(length + 1)) return true;
    // The disk is full: take back the part that was written.
    if (ftruncate(file, before.st_size) != 0) return false;
    return false;
}

// Whether del_line() of `name` deletes the line that begins with `text`.
bool is_deleted(std::string_view text, std::string_view name) {
    const std::string_view key = text_head(text, kNameSize - 1);
    const std::string_view word = text_until(key, " ");
    if (word.size() == key.size()) return true;  // no blank: not a record
    // Kept: deleting tun10 also deletes tun1, whose word is a prefix of the name (and a line that
    // begins with a blank, whose word is empty).
    return begins_with(name, word);
}

// Copies the lines that del_line() keeps. False when the copy could not be written whole.
bool copy_kept_lines(std::FILE* from, std::FILE* to, std::string_view name) {
    char line[kLineSize];
    bool at_line_start = true;
    bool kept = false;
    while (next_line(from, std::span(line, kLineLimit))) {
        const std::string_view text(line);
        if (at_line_start) kept = !is_deleted(text, name);
        if (kept && std::fputs(line, to) < 0) return false;
        at_line_start = text.size() < kLineLimit - 1 || text.back() == '\n';
    }
    return !std::ferror(from);
}

// Writes what is left after the deletion to the work file. False when either file cannot be opened
// (a work file that was made stays, empty) or the copy cannot be written (no part of it stays).
bool write_work_file(const char* name, const char* path) {
    std::FILE* from = std::fopen(path, "re");
    std::FILE* to = file_create(kWorkFile);
    const bool copied = from && to && copy_kept_lines(from, to, name);
    if (from) std::fclose(from);
    const bool written = to && std::fclose(to) == 0 && copied;
    if (from && to && !written) std::remove(kWorkFile);
    return written;
}

// The second name of a file that is being replaced. False when the path is too long.
bool old_name(std::span<char> out, const char* path) {
    return text_print(out, "%s.cpectl-old", path);
}

// Whether the disk has amply room for a copy of the file.
bool has_room_for_copy(const char* path) {
    struct stat file;
    struct statvfs disk;
    if (stat(path, &file) != 0 || statvfs(path, &disk) != 0) return false;
    const std::uint64_t room = static_cast<std::uint64_t>(disk.f_bavail) * disk.f_frsize;
    return room / 2 > static_cast<std::uint64_t>(file.st_size);
}

// Gives the file a second name until it is replaced: from another file system, mv takes it away
// before it copies the new one. A disk without room for both, or without second names, does
// without.
void old_file_keep(const char* path) {
    char old[kPathSize];
    if (!old_name(old, path) || !has_room_for_copy(path)) return;
    [[maybe_unused]] const int failed = link(path, old);
}

// Takes the second name away: the file was replaced.
void old_file_forget(const char* path) {
    char old[kPathSize];
    if (old_name(old, path)) unlink(old);
}

// Brings back the old file, if it has its second name still: its replacement failed, or was cut
// off, by the power say.
void old_file_restore(const char* path) {
    char old[kPathSize];
    if (old_name(old, path) && std::rename(old, path) == 0) unlink(old);  // both may be one file
}

}  // namespace

int line_file_lock(const char* path) {
    const int lock = folder_lock(path);
    if (lock >= 0) old_file_restore(path);
    return lock;
}

std::FILE* line_file_open(const char* path) {
    const int lock = line_file_lock(path);
    std::FILE* file = std::fopen(path, "re");
    folder_unlock(lock);
    return file;
}

bool line_file_is_there(const char* path) {
    const int lock = line_file_lock(path);
    const bool there = access(path, F_OK) == 0;
    folder_unlock(lock);
    return there;
}

int file_content_get(const char* path, std::span<char> output) {
    std::FILE* file = std::fopen(path, "re");
    if (!file) return -1;
    char piece[2048];
    std::int32_t total = 0;
    const std::size_t before = strnlen(output.data(), output.size());
    while (next_line(file, std::span(piece, sizeof piece - 1))) {
        const bool fits = text_append(output, piece);
        total = static_cast<std::int32_t>(strnlen(output.data(), output.size()) - before);
        if (!fits) break;
    }
    std::fclose(file);
    return total;
}

int add_line(const char* line, const char* path) {
    const int lock = line_file_lock(path);
    const int file = open(path, O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    // Kept: behind a last line without newline, the new one continues that line.
    const bool added = file >= 0 && line_append(file, line);
    if (file >= 0) close(file);
    folder_unlock(lock);
    return added ? 0 : -1;
}

int del_line(const char* name, const char* path) {
    char move[128] = {};
    if (!shell_print(move, "mv -f %s %s >/dev/null", kWorkFile, path)) return -1;

    const int lock = line_file_lock(path);
    const bool written = write_work_file(name, path);
    if (written) {
        old_file_keep(path);
        // One that complains has still moved the file when the work file is gone: of an owner that
        // the other file system does not take, say.
        if (shell_run(move) == 0 || access(kWorkFile, F_OK) != 0)
            old_file_forget(path);
        else
            old_file_restore(path);
    }
    folder_unlock(lock);
    if (!written) return -1;

    shell_run("/usr/bin/dd_flash -s >/dev/null");
    return 0;
}

int find_name_which_line(const char* name, const char* path) {
    std::FILE* file = line_file_open(path);
    if (!file) return -1;
    char line[kLineSize];
    int found = 0;
    int number = 0;
    while (!found && next_line(file, std::span(line, kLineLimit))) {
        const std::string_view text(line);
        const std::string_view word = text_until(text, " ");
        if (word.size() == text.size()) continue;  // no blank: not a record, and not counted
        number++;
        // Kept: tun1 finds tun10 if that comes first; the opposite direction of del_line().
        if (begins_with(text_head(word, kNameSize - 1), name)) found = number;
    }
    std::fclose(file);
    return found;
}

int line_file_has(const char* name, const char* path, std::size_t line_size) {
    std::FILE* file = line_file_open(path);
    if (!file) return -1;
    char line[kLineSize];
    bool found = false;
    while (!found && next_line(file, std::span(line, line_size))) {
        const std::string_view text(line);
        const std::string_view word = text_until(text, " ");
        // Kept: the name has to be a prefix of the word only.
        found = word.size() < text.size() && begins_with(word, name);
    }
    std::fclose(file);
    return found ? 1 : 0;
}
