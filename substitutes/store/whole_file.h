// Files that are read whole and replaced whole, and the lock that their writers take.
//
// A reader needs no lock: it sees the file from before or from after a replacement, never a
// mixture. No function here follows a symbolic link in the last part of a path.
#pragma once

#include <time.h>

#include <cstdint>
#include <string_view>

// The bytes of a file. The buffer is made by malloc and belongs to whoever holds the record.
struct FileContent {
    char* data;
    std::size_t size;
};

inline std::string_view content_view(const FileContent& content) {
    return {content.data, content.size};
}

// What tells one content of a path from the next, when enough time lies between them: a file system
// may count times in steps of seconds, and give a new file the number of one that was removed.
struct FileMark {
    std::uint64_t device;
    std::uint64_t number;
    std::int64_t size;     // bytes
    std::int64_t written;  // nanoseconds since 1970
    std::int64_t changed;  // nanoseconds since 1970; nobody can set it back

    bool operator==(const FileMark&) const = default;
};

// The mark of a path, without following a link. False, with errno, when there is nothing.
[[nodiscard]] bool file_mark(const char* path, FileMark& mark);

// Reads a regular file of at most `size_max` bytes, and the mark of what was read unless `mark` is
// null. False, with errno, when that fails: ENOENT when there is no such file, EFBIG when it is
// longer, EINVAL when it is something else than a file.
[[nodiscard]] bool file_read(const char* path, std::size_t size_max, FileContent& content,
                             FileMark* mark = nullptr);

// Replaces a file by new content, or makes it. The content is first written to the path with ".new"
// added, where whatever a killed writer has left is removed; so the caller holds the writers' lock.
// When `durable`, the file is on the medium before it takes the old one's place, and the new
// place is there before this returns. False, with errno, when that fails; the old file is then
// still there, but for a failure of the medium after the replacement.
[[nodiscard]] bool file_replace(const char* path, std::string_view content, bool durable);

// Waits until the names in a path's folder are on its medium. False, with errno, on failure.
[[nodiscard]] bool folder_sync(const char* path);

// Takes the lock that a lock file stands for, and waits for it; makes the file and, one level
// of it, its folder. Returns the lock for lock_release(); -1, with errno, on failure.
[[nodiscard]] int lock_take(const char* path);

// Leaves a mark in the lock file: a note from one holder of the lock to the next, there until the
// folder is emptied. False, with errno, on failure.
[[nodiscard]] bool lock_mark(int lock);

// Removes the mark. When that fails the mark stays.
void lock_unmark(int lock);

// Whether a holder of the lock has left a mark. True when that cannot be told.
[[nodiscard]] bool lock_is_marked(int lock);

// Gives the lock back. errno stays as it was.
void lock_release(int lock);
