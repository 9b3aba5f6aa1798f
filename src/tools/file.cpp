// Files under fixed names: creating them in folders open to everybody, and taking turns with them.
#include "tools/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <string_view>

#include "tools/text.h"

namespace {

// Whether an open file is a plain one of this user under one name.
bool is_own(int file) {
    struct stat status;
    return fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
           status.st_nlink == 1;
}

}  // namespace

std::FILE* file_create(const char* path) {
    // Not to wait for a reader, should the path be a pipe; emptied only when it may be.
    const int file = open(path, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644);
    if (file < 0) return nullptr;
    if (is_own(file) && ftruncate(file, 0) == 0) return fdopen(file, "w");
    close(file);
    return nullptr;
}

bool is_symbolic_link(const char* path) {
    struct stat status;
    return lstat(path, &status) == 0 && S_ISLNK(status.st_mode);
}

int folder_lock(const char* path) {
    char folder[PATH_MAX];
    const char* slash = std::strrchr(path, '/');
    const std::string_view parent(path, slash ? static_cast<std::size_t>(slash - path) : 0);
    if (!text_copy(folder, slash ? (parent.empty() ? "/" : parent) : ".")) return -1;
    const int lock = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (lock >= 0) flock(lock, LOCK_EX);
    return lock;
}

void folder_unlock(int lock) {
    if (lock >= 0) close(lock);
}
