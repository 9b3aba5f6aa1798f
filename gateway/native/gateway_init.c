// The first process of the gateway: makes the network, starts what answers there and what feeds
// prepared readings, runs one program, waits until all that it left in the background has ended,
// and writes how it went into the run's file "result".
//
// Usage: gateway-init [-o FILE|closed|full|broken-pipe] [-e FILE] [-t SECONDS] [-b SECONDS]
//                     PROGRAM ARGUMENT...
//   -o, -e  where the program's output and errors go: a file of the run's directory, or @N for the
//           open file number N; without the option they are inherited
//   -t      how long the program may take (0, the default: as long as it likes)
//   -b      how long its background processes may take after it (default 10)
//
// What is to be set up stands in the run's directory, each only if needed: "net" (a batch for the
// ip tool), "start" (see commands_start), "feeds" (see feed_start) and "http" (see http.h).
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "http.h"
#include "trace.h"

struct Options {
    const char* output;
    const char* errors;
    long program_seconds;
    long background_seconds;
    char** program;
};

static void fail(const char* what) {
    fprintf(stderr, "gateway-init: %s: %s\n", what, strerror(errno));
    _exit(125);
}

// ---- the network

static void net_start(void) {
    if (access(RUN_DIR "/net", F_OK) != 0) return;
    pid_t tool = fork();
    if (tool < 0) fail("fork");
    if (tool == 0) {
        execl("/sbin/ip", "ip", "-batch", RUN_DIR "/net", (char*)NULL);
        fail("/sbin/ip");
    }
    int status = 0;
    if (waitpid(tool, &status, 0) != tool || status != 0) {
        fprintf(stderr, "gateway-init: the network cannot be made\n");
        _exit(125);
    }
}

// ---- what else is to be there before the program

static void command_run(char* rest) {
    char* words[32];
    size_t count = 0;
    while (count < sizeof words / sizeof words[0] - 1) {
        words[count] = word_next(&rest);
        if (!words[count]) break;
        count++;
    }
    words[count] = NULL;
    if (count == 0) return;
    pid_t command = fork();
    if (command < 0) fail("fork");
    if (command == 0) {
        execv(words[0], words);
        fail(words[0]);
    }
    int status = 0;
    if (waitpid(command, &status, 0) != command || status != 0) {
        fprintf(stderr, "gateway-init: %s failed\n", words[0]);
        _exit(125);
    }
}

// Runs each line of "start" and waits for it. What it leaves in the background goes on until the
// end of the run, and the end does not wait for it.
static void commands_start(void) {
    FILE* file = run_file("start");
    if (!file) return;
    char* line = NULL;
    size_t room = 0;
    while (getline(&line, &room, file) >= 0)
        command_run(line);
    free(line);
    fclose(file);
}

// ---- files that read differently each time

// A prepared reading, from malloc, and its size in bytes.
static char* reading_load(const char* name, size_t* size) {
    char path[256];
    snprintf(path, sizeof path, RUN_DIR "/%s", name);
    int file = open(path, O_RDONLY | O_CLOEXEC);
    struct stat status;
    if (file < 0 || fstat(file, &status) != 0) fail(path);
    *size = (size_t)status.st_size;
    char* content = malloc(*size + 1);
    if (!content || read(file, content, *size) != (ssize_t)*size) fail(path);
    close(file);
    return content;
}

// Copies one prepared reading into the FIFO for the next reader, and waits until that reader has
// closed it: a reader that comes after must not see the rest. So all of it goes in by one write,
// and this end is closed before a reader that stops early can be followed by the next.
static void feed_once(const char* fifo, const char* reading, int watch) {
    size_t size;
    char* content = reading_load(reading, &size);
    int out = open(fifo, O_WRONLY | O_CLOEXEC);
    if (out < 0) fail(fifo);
    fcntl(out, F_SETPIPE_SZ, (int)size);  // if it may be so large
    if (write(out, content, size) < 0) {
        // The reader had enough.
    }
    close(out);
    free(content);
    char event[sizeof(struct inotify_event) + 256];
    if (read(watch, event, sizeof event) < 0) fail("inotify");
}

// Each line of "feeds": the path of a FIFO, then the names of the readings in their order; the
// last one is repeated for whoever opens the file after that.
static void feed_start(char* rest) {
    char* fifo = word_next(&rest);
    if (!fifo) return;
    pid_t feeder = fork();
    if (feeder < 0) fail("fork");
    if (feeder > 0) return;

    signal(SIGPIPE, SIG_IGN);
    int watch = inotify_init1(IN_CLOEXEC);
    if (watch < 0 || inotify_add_watch(watch, fifo, IN_CLOSE_NOWRITE) < 0) fail(fifo);
    const char* reading = word_next(&rest);
    for (;;) {
        if (!reading) _exit(0);
        feed_once(fifo, reading, watch);
        const char* next = word_next(&rest);
        if (next) reading = next;
    }
}

static void feeds_start(void) {
    FILE* file = run_file("feeds");
    if (!file) return;
    char* line = NULL;
    size_t room = 0;
    while (getline(&line, &room, file) >= 0)
        feed_start(line);
    free(line);
    fclose(file);
}

// ---- the program

static int run_file_create(const char* name) {
    char path[256];
    snprintf(path, sizeof path, RUN_DIR "/%s", name);
    int file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (file < 0) fail(path);
    return file;
}

static int broken_pipe(void) {
    int ends[2];
    if (pipe(ends) != 0) fail("pipe");
    close(ends[0]);
    return ends[1];
}

static void redirect(int number, const char* target) {
    if (!target) return;
    if (strcmp(target, "closed") == 0) {
        close(number);
        return;
    }
    int file = target[0] == '@'                     ? atoi(target + 1)
               : strcmp(target, "full") == 0        ? open("/dev/full", O_WRONLY)
               : strcmp(target, "broken-pipe") == 0 ? broken_pipe()
                                                    : run_file_create(target);
    if (file < 0 || dup2(file, number) < 0) fail(target);
    close(file);
}

// Each signal does what it does by default, whatever this run was started with: in the background
// or under nohup, some are ignored.
static void signals_reset(void) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, NULL);
    for (int number = 1; number < NSIG; number++)
        signal(number, SIG_DFL);
}

static pid_t program_start(const struct Options* options) {
    pid_t program = fork();
    if (program < 0) fail("fork");
    if (program > 0) return program;

    signals_reset();
    redirect(STDERR_FILENO, options->errors);
    redirect(STDOUT_FILENO, options->output);
    execv(options->program[0], options->program);
    fail(options->program[0]);
    return -1;
}

static int64_t now_microseconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000000 + now.tv_nsec / 1000;
}

// Waits for one child process of this one. Returns its number, 0 when the time (microseconds from
// start, 0: no limit) is over, -1 when no child is left.
static pid_t child_wait(int* status, int64_t deadline) {
    sigset_t child_ended;
    sigemptyset(&child_ended);
    sigaddset(&child_ended, SIGCHLD);
    for (;;) {
        pid_t ended = waitpid(-1, status, WNOHANG);
        if (ended != 0) return ended;
        int64_t left = deadline - now_microseconds();
        if (deadline && left <= 0) return 0;
        struct timespec limit = {(time_t)(left / 1000000), (long)(left % 1000000 * 1000)};
        sigtimedwait(&child_ended, NULL, deadline ? &limit : NULL);
    }
}

// Starts the program, waits for it and for all that it leaves behind, and writes the result:
// "exit N", "signal N" or "timeout 0", then "took MICROSECONDS", then "lingering" if something
// was still running when the time was over. Returns the program's exit status as a shell would.
static int supervise(const struct Options* options) {
    // Orphans of the program come to this process, those of the helpers do not.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    sigset_t child_ended;
    sigemptyset(&child_ended);
    sigaddset(&child_ended, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child_ended, NULL);

    int64_t start = now_microseconds();
    int64_t deadline = options->program_seconds ? start + options->program_seconds * 1000000 : 0;
    pid_t program = program_start(options);
    int status = 0;
    pid_t ended;
    do {
        ended = child_wait(&status, deadline);
    } while (ended > 0 && ended != program);
    int64_t took = now_microseconds() - start;

    FILE* result = fopen(RUN_DIR "/result", "we");
    if (!result) fail("result");
    if (ended != program) {
        fprintf(result, "timeout 0\n");
        status = 124;
    } else if (WIFSIGNALED(status)) {
        fprintf(result, "signal %d\n", WTERMSIG(status));
        status = 128 + WTERMSIG(status);
    } else {
        status = WEXITSTATUS(status);
        fprintf(result, "exit %d\n", status);
    }
    fprintf(result, "took %lld\n", (long long)took);

    deadline = now_microseconds() + options->background_seconds * 1000000;
    int ignored = 0;
    do {
        ended = child_wait(&ignored, deadline);
    } while (ended > 0);
    if (ended == 0) fprintf(result, "lingering\n");
    fclose(result);
    return status;
}

static struct Options options_read(int argc, char** argv) {
    struct Options options = {.background_seconds = 10};
    for (int option; (option = getopt(argc, argv, "+o:e:t:b:")) != -1;) {
        switch (option) {
            case 'o':
                options.output = optarg;
                break;
            case 'e':
                options.errors = optarg;
                break;
            case 't':
                options.program_seconds = atol(optarg);
                break;
            case 'b':
                options.background_seconds = atol(optarg);
                break;
            default:
                _exit(125);
        }
    }
    options.program = argv + optind;
    return options;
}

int main(int argc, char** argv) {
    struct Options options = options_read(argc, argv);
    if (!options.program[0]) {
        fprintf(stderr, "gateway-init: no program\n");
        return 125;
    }
    net_start();
    commands_start();
    http_start();
    feeds_start();

    // The helpers stay children of this process, so that the supervisor waits for others only.
    pid_t supervisor = fork();
    if (supervisor < 0) fail("fork");
    if (supervisor == 0) _exit(supervise(&options));
    int status = 0;
    while (waitpid(supervisor, &status, 0) != supervisor) {
        if (errno != EINTR) fail("wait");
    }
    // Whatever is left ends with this process.
    return WIFEXITED(status) ? WEXITSTATUS(status) : 125;
}
