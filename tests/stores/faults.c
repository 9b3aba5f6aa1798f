// Preloaded into a program that writes a store: counts its calls to the kernel's file functions,
// notes them, and makes the program die, or one call fail, at a chosen one.
//
//   FAULTS_LOG    file to which each call is appended, one line "NUMBER CALL PATH"
//   FAULTS_AT     the number of the call, counted from 1
//   FAULTS_DO     "kill": dies before the call; "half": dies after half of a write;
//                 "stop": stops before the call, until it is continued
//                 a number: the call fails with this errno, after half of it if it is a write
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

static int calls;

#define NEXT(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

static void note(const char* call, const char* path) {
    char line[5000];
    const char* log = getenv("FAULTS_LOG");
    if (!log) return;
    const int size = snprintf(line, sizeof line, "%d %s %s\n", calls, call, path);
    const int fd = NEXT(open)(log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0 || NEXT(write)(fd, line, (size_t)size) != size) abort();
    NEXT(close)(fd);
}

static void die(void) {
    kill(getpid(), SIGKILL);
    for (;;)
        pause();
}

enum Fault { kNone, kFail, kHalf };

// Counts and notes a call. Says what is to become of it; errno is then set as it is to fail.
static enum Fault fault_at(const char* call, const char* path) {
    const char* at = getenv("FAULTS_AT");
    const char* what = getenv("FAULTS_DO");
    ++calls;
    note(call, path);
    if (!at || !what || atoi(at) != calls) return kNone;
    if (strcmp(what, "kill") == 0) die();
    if (strcmp(what, "stop") == 0) return raise(SIGSTOP), kNone;
    if (strcmp(what, "half") == 0) return kHalf;
    errno = atoi(what);
    return kFail;
}

static const char* path_of(int fd) {
    static char path[4096];
    char link[64];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t size = readlink(link, path, sizeof path - 1);
    path[size > 0 ? size : 0] = '\0';
    return path;
}

static int open_counted(const char* path, int flags, mode_t mode) {
    const char* call = flags & O_CREAT ? "create" : "open";
    if (fault_at(call, path) == kFail) return -1;
    return NEXT(open)(path, flags, mode);
}

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return open_counted(path, flags, mode);
}

// What open() is called in programs that are compiled for large files.
int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return open_counted(path, flags | O_LARGEFILE, mode);
}

ssize_t read(int fd, void* buffer, size_t size) {
    if (fault_at("read", path_of(fd)) == kFail) return -1;
    return NEXT(read)(fd, buffer, size);
}

ssize_t write(int fd, const void* buffer, size_t size) {
    const enum Fault fault = fault_at("write", path_of(fd));
    const int error = errno;
    if (fault == kNone) return NEXT(write)(fd, buffer, size);
    if (NEXT(write)(fd, buffer, size / 2) < 0) abort();
    if (fault == kHalf) die();
    errno = error;
    return -1;
}

int close(int fd) {
    const enum Fault fault = fault_at("close", path_of(fd));
    const int error = errno;
    const int result = NEXT(close)(fd);
    if (fault != kFail) return result;
    errno = error;
    return -1;
}

int fsync(int fd) {
    if (fault_at("fsync", path_of(fd)) == kFail) return -1;
    return NEXT(fsync)(fd);
}

int ftruncate64(int fd, off64_t size) {
    if (fault_at("resize", path_of(fd)) == kFail) return -1;
    return NEXT(ftruncate64)(fd, size);
}

int flock(int fd, int operation) {
    if (fault_at("flock", path_of(fd)) == kFail) return -1;
    return NEXT(flock)(fd, operation);
}

int rename(const char* from, const char* to) {
    if (fault_at("rename", to) == kFail) return -1;
    return NEXT(rename)(from, to);
}

int unlink(const char* path) {
    if (fault_at("unlink", path) == kFail) return -1;
    return NEXT(unlink)(path);
}

int mkdir(const char* path, mode_t mode) {
    if (fault_at("mkdir", path) == kFail) return -1;
    return NEXT(mkdir)(path, mode);
}
