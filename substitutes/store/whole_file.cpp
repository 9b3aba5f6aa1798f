// Files that are read and replaced whole; see whole_file.h.
#include "store/whole_file.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr mode_t kFileMode = 0600;  // passwords are kept here
static constexpr mode_t kFolderMode = 0700;

static bool fail(int error) {
    errno = error;
    return false;
}

// Closes a file that is done with, and says what went wrong before.
static void close_quietly(int fd) {
    const int error = errno;
    close(fd);
    errno = error;
}

static bool read_all(int fd, FileContent& content) {
    std::size_t done = 0;
    while (done < content.size) {
        const ssize_t got = read(fd, content.data + done, content.size - done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) break;  // shortened meanwhile, so not by a writer of ours
        done += static_cast<std::size_t>(got);
    }
    content.size = done;
    return true;
}

static std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

static FileMark mark_of(const struct stat& status) {
    return {status.st_dev, status.st_ino, status.st_size, nanoseconds(status.st_mtim),
            nanoseconds(status.st_ctim)};
}

bool file_mark(const char* path, FileMark& mark) {
    struct stat status;
    if (lstat(path, &status) < 0) return false;
    mark = mark_of(status);
    return true;
}

static bool read_opened(int fd, std::size_t size_max, FileContent& content, FileMark* mark) {
    struct stat status;
    if (fstat(fd, &status) < 0) return false;
    if (mark) *mark = mark_of(status);
    if (!S_ISREG(status.st_mode)) return fail(EINVAL);
    if (status.st_size > static_cast<off_t>(size_max)) return fail(EFBIG);

    FileContent read = {nullptr, static_cast<std::size_t>(status.st_size)};
    read.data = static_cast<char*>(malloc(read.size + 1));  // an empty file has a buffer, too
    if (!read.data) return false;
    if (!read_all(fd, read)) {
        free(read.data);
        return false;
    }
    content = read;
    return true;
}

bool file_read(const char* path, std::size_t size_max, FileContent& content, FileMark* mark) {
    // Not to wait for a writer, should the path be a pipe.
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) return false;
    if (read_opened(fd, size_max, content, mark)) {
        close(fd);
        return true;
    }
    close_quietly(fd);
    return false;
}

static bool write_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t put = write(fd, bytes.data(), bytes.size());
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

static int create_new(const char* path) {
    return open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kFileMode);
}

static bool write_new(const char* path, std::string_view content, bool durable) {
    int fd = create_new(path);
    if (fd < 0 && errno == EEXIST && unlink(path) == 0) fd = create_new(path);
    if (fd < 0) return false;
    const bool written = write_all(fd, content) && (!durable || fsync(fd) == 0);
    if (!written) {
        close_quietly(fd);
        return false;
    }
    return close(fd) == 0;
}

bool file_replace(const char* path, std::string_view content, bool durable) {
    char next[PATH_MAX];
    const int length = snprintf(next, sizeof next, "%s.new", path);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof next) return fail(ENAMETOOLONG);

    if (!write_new(next, content, durable) || rename(next, path) < 0) {
        const int error = errno;
        unlink(next);
        return fail(error);
    }
    return !durable || folder_sync(path);
}

// Writes the folder part of a path to `folder`; "." when it has none. False when it is too long.
static bool folder_of(const char* path, char (&folder)[PATH_MAX]) {
    const char* slash = strrchr(path, '/');
    const std::size_t size = slash ? static_cast<std::size_t>(slash - path) : 0;
    if (size >= sizeof folder) return fail(ENAMETOOLONG);
    memcpy(folder, path, size);
    folder[size] = '\0';
    if (size == 0) memcpy(folder, slash ? "/" : ".", 2);
    return true;
}

bool folder_sync(const char* path) {
    char folder[PATH_MAX];
    if (!folder_of(path, folder)) return false;
    const int fd = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    // A file system that cannot do this for folders has nothing to wait for.
    const bool synced = fsync(fd) == 0 || errno == EINVAL || errno == EROFS;
    close_quietly(fd);
    return synced;
}

static int lock_open(const char* path) {
    return open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, kFileMode);
}

static int lock_open_in_new_folder(const char* path) {
    char folder[PATH_MAX];
    if (!folder_of(path, folder)) return -1;
    if (mkdir(folder, kFolderMode) < 0 && errno != EEXIST) return -1;
    return lock_open(path);
}

static bool lock_wait(int fd) {
    while (flock(fd, LOCK_EX) < 0)
        if (errno != EINTR) return false;
    return true;
}

int lock_take(const char* path) {
    for (;;) {
        int fd = lock_open(path);
        if (fd < 0 && errno == ENOENT) fd = lock_open_in_new_folder(path);
        if (fd < 0) return -1;

        struct stat status;
        if (!lock_wait(fd) || fstat(fd, &status) < 0) {
            close_quietly(fd);
            return -1;
        }
        if (status.st_nlink > 0) return fd;
        close(fd);  // removed while we waited: the next writer would lock another file
    }
}

bool lock_mark(int lock) {
    return ftruncate(lock, 1) == 0;
}

void lock_unmark(int lock) {
    if (ftruncate(lock, 0) < 0) return;  // as the header says
}

bool lock_is_marked(int lock) {
    struct stat status;
    return fstat(lock, &status) < 0 || status.st_size > 0;
}

void lock_release(int lock) {
    // Closing alone would leave the lock with a child that another thread has just forked.
    const int error = errno;
    flock(lock, LOCK_UN);
    close(lock);
    errno = error;
}
