// hostapd's control sockets; see control.h.
#include "wum/control.h"

#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "monitor/clock.h"

static constexpr std::int64_t kAnswerTime = 500 * kMillisecond;

static const char* sockets_folder() {
    const char* folder = secure_getenv("CPECTL_HOSTAPD_DIR");
    return folder && *folder ? folder : "/var/run/hostapd";
}

static bool socket_path(const char* name, char (&path)[PATH_MAX]) {
    const int length = snprintf(path, sizeof path, "%s/%s", sockets_folder(), name);
    return length >= 0 && static_cast<std::size_t>(length) < sizeof path;
}

static bool is_socket(const char* name) {
    char path[PATH_MAX];
    struct stat status;
    return socket_path(name, path) && lstat(path, &status) == 0 && S_ISSOCK(status.st_mode);
}

static int name_compare(const void* one, const void* other) {
    return strcmp(static_cast<const SocketName*>(one)->text,
                  static_cast<const SocketName*>(other)->text);
}

static std::size_t sockets_read(DIR* folder, std::span<SocketName, kSocketMax> names) {
    std::size_t count = 0;
    while (const dirent* entry = readdir(folder)) {
        const std::size_t length = strlen(entry->d_name);
        if (count == kSocketMax) break;
        if (length >= kSocketNameSize || !is_socket(entry->d_name)) continue;
        memcpy(names[count++].text, entry->d_name, length + 1);
    }
    return count;
}

std::size_t sockets_list(std::span<SocketName, kSocketMax> names) {
    DIR* folder = opendir(sockets_folder());
    if (!folder) return 0;
    const std::size_t count = sockets_read(folder, names);
    closedir(folder);
    qsort(names.data(), count, sizeof names[0], name_compare);
    return count;
}

wpa_ctrl* control_open(const SocketName& name) {
    char path[PATH_MAX];
    return socket_path(name.text, path) ? wpa_ctrl_open(path) : nullptr;
}

// Waits until the connection is ready for `events`.
static bool control_wait(int fd, short events, std::int64_t deadline) {
    pollfd waiting = {fd, events, 0};
    for (;;) {
        const std::int64_t left = (deadline - clock_now() + kMillisecond - 1) / kMillisecond;
        const int ready = poll(&waiting, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready > 0) return true;
        if (ready == 0 || errno != EINTR) return false;
    }
}

bool control_ask(wpa_ctrl* control, std::string_view command, std::int64_t deadline,
                 std::span<char, kReplySize> buffer, std::string_view& reply) {
    const int fd = wpa_ctrl_get_fd(control);
    const std::int64_t latest = clock_now() + kAnswerTime;
    if (deadline > latest) deadline = latest;

    // A daemon that hangs has a full queue sooner or later; the sending then has to wait, too.
    if (!control_wait(fd, POLLOUT, deadline)) return false;
    if (send(fd, command.data(), command.size(), MSG_NOSIGNAL) < 0) return false;
    if (!control_wait(fd, POLLIN, deadline)) return false;
    const ssize_t size = recv(fd, buffer.data(), buffer.size(), 0);
    if (size < 0) return false;
    reply = {buffer.data(), static_cast<std::size_t>(size)};
    return true;
}
