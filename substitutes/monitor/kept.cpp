// Files kept between runs; see kept.h.
#include "monitor/kept.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

static void boot_read(char (&out)[40]) {
    const int fd = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    if (read(fd, out, sizeof out - 1) < 0) out[0] = '\0';
    close(fd);
}

static std::uint64_t network_read() {
    std::uint64_t cookie = 0;
#ifdef SO_NETNS_COOKIE
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return 0;
    socklen_t size = sizeof cookie;
    if (getsockopt(fd, SOL_SOCKET, SO_NETNS_COOKIE, &cookie, &size) < 0) cookie = 0;
    close(fd);
#endif
    return cookie;
}

Surroundings surroundings_now() {
    Surroundings now = {};
    boot_read(now.boot);
    now.network = network_read();
    return now;
}

bool surroundings_equal(const Surroundings& one, const Surroundings& other) {
    return memcmp(&one, &other, sizeof one) == 0;
}

static bool kept_path(const char* name, const char* ending, char (&path)[PATH_MAX]) {
    // Not when the program runs with more rights than its caller: the caller chose this.
    const char* folder = secure_getenv("CPECTL_RUN_DIR");
    if (!folder || !*folder) folder = CPECTL_RUN_DIR;
    const int length = snprintf(path, sizeof path, "%s/%s%s", folder, name, ending);
    return length >= 0 && static_cast<std::size_t>(length) < sizeof path;
}

int kept_lock(const char* name) {
    char path[PATH_MAX];
    return kept_path(name, ".lock", path) ? lock_take(path) : -1;
}

bool kept_read(const char* name, std::size_t size_max, FileContent& content) {
    char path[PATH_MAX];
    return kept_path(name, "", path) && file_read(path, size_max, content);
}

bool kept_replace(const char* name, std::string_view content) {
    char path[PATH_MAX];
    return kept_path(name, "", path) && file_replace(path, content, false);
}
