// What cpectl-platform-check says, and the process of its own in which each check runs.
#include "report.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

// Shared by all processes of one run.
struct Shared {
    std::uint32_t wrongs;
    char doing[160];
};
Shared* shared = nullptr;

// The status of a check's process that could not begin.
constexpr int kNoProcess = 127;

// Where the report goes: in a check's own process, standard output is the library's.
int report_fd = STDOUT_FILENO;

bool share() {
    if (shared) return true;
    void* memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return false;
    shared = static_cast<Shared*>(memory);
    return true;
}

[[gnu::format(printf, 2, 0)]] void say(const char* kind, const char* format, std::va_list args) {
    char line[256];
    const int written = std::vsnprintf(line, sizeof line, format, args);
    if (written < 0) return;
    dprintf(report_fd, "  %-6s %s\n", kind, line);
}

// An unnamed file that takes what a library prints; -1 when none can be made.
int output_file() {
    char name[] = "/tmp/cpectl-platform-check.XXXXXX";
    const int fd = mkstemp(name);
    if (fd >= 0) unlink(name);
    return fd;
}

// The process of one check. Never returns.
[[noreturn]] void check_process(void (*check)(const Options&), const Options& options) {
    const int output = output_file();
    report_fd = dup(STDOUT_FILENO);
    const int instead = output >= 0 ? output : open("/dev/null", O_WRONLY);
    if (report_fd < 0 || dup2(instead, STDOUT_FILENO) < 0) _exit(kNoProcess);

    doing("loading it");
    check(options);
    doing("ending");
    (void)std::fflush(nullptr);
    struct stat printed = {};
    if (output >= 0 && fstat(output, &printed) == 0 && printed.st_size > 0) {
        say_wrong(
            "it prints on standard output (%lld bytes here): that is where cpectl's answer "
            "goes",
            static_cast<long long>(printed.st_size));
    }
    _exit(0);
}

// Waits for a process. False when it was still running after `seconds`; it is ended then.
bool wait_for(pid_t process, std::uint32_t seconds, int& status) {
    constexpr std::uint32_t kPollsPerSecond = 50;
    const timespec pause = {0, 1000000000 / kPollsPerSecond};
    for (std::uint32_t polls = 0; polls < seconds * kPollsPerSecond; polls++) {
        if (waitpid(process, &status, WNOHANG) == process) return true;
        nanosleep(&pause, nullptr);
    }
    kill(process, SIGKILL);
    waitpid(process, &status, 0);
    return false;
}

}  // namespace

void say_ok(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    say("ok", format, args);
    va_end(args);
}

void say_wrong(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    say("WRONG", format, args);
    va_end(args);
    shared->wrongs++;
}

void say_note(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    say("note", format, args);
    va_end(args);
}

void doing(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(shared->doing, sizeof shared->doing, format, args);
    va_end(args);
    errno = 0;
}

const char* cause() {
    static char text[96];
    if (errno == 0) return "";
    std::snprintf(text, sizeof text, " (%s)", std::strerror(errno));
    return text;
}

std::uint32_t wrongs() {
    return shared ? shared->wrongs : 0;
}

// The kernel reads the bytes for us: where there are none, it says so instead of ending us.
bool is_readable(const void* address, std::uint32_t size) {
    int ends[2];
    if (pipe(ends) != 0) return true;
    const auto* bytes = static_cast<const char*>(address);
    bool readable = true;
    for (std::uint32_t at = 0; readable && at < size; at += 1024) {
        const std::uint32_t part = size - at < 1024 ? size - at : 1024;
        char sink[1024];
        readable = write(ends[1], bytes + at, part) == static_cast<ssize_t>(part) &&
                   read(ends[0], sink, part) == static_cast<ssize_t>(part);
    }
    close(ends[0]);
    close(ends[1]);
    return readable;
}

bool is_address(const char* text) {
    in_addr address;
    return inet_pton(AF_INET, text, &address) == 1;
}

void printable(char* out, std::uint32_t size, const char* from, std::uint32_t length) {
    std::uint32_t used = 0;
    for (; used + 1 < size && used < length && from[used]; used++) {
        const char c = from[used];
        out[used] = c >= ' ' && c <= '~' ? c : '?';
    }
    out[used] = '\0';
}

bool run_apart(const char* title, void (*check)(const Options&), const Options& options) {
    if (!share()) return false;
    dprintf(STDOUT_FILENO, "%s\n", title);
    const pid_t process = fork();
    if (process < 0) return false;
    if (process == 0) check_process(check, options);

    int status = 0;
    if (!wait_for(process, options.seconds, status)) {
        say_wrong("no end within %u s (%s): cpectl would wait as long", options.seconds,
                  shared->doing);
    } else if (WIFSIGNALED(status)) {
        say_wrong("it crashed (%s, while %s)", strsignal(WTERMSIG(status)), shared->doing);
    } else if (std::strcmp(shared->doing, "ending") != 0) {
        say_wrong("it ended the process (status %d, while %s)", WEXITSTATUS(status), shared->doing);
    }
    return true;
}
