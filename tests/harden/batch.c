// Runs many requests one after the other in one gateway: starting a gateway for each would be most
// of the time. Reads /opt/requests and writes /opt/results.
//
// The requests are fields, each "LENGTH:BYTES,", the first byte of which says what it is:
//   f PATH, then a field with the content   writes this file before the next request
//   x PATH                                  removes this file before the next request
//   e NAME=VALUE                            for the environment of the next request
//   l SECONDS                               how long each of the requests from here on may take
//   a ARGUMENT                              an argument of the next request
//   o KIND    where the next request's standard output goes: "closed", "full" or "broken-pipe"
//   h HANDICAP  what the next request has to do without: "rights" (reading and writing files whose
//             mode forbids it), "children" (being told of their end), or a number: so many files
//             may be open
//   k NUMBER  kills the program when it is about to make this system call, counted from 1; with
//             "all NUMBER", what it started dies with it, as when the power goes; with
//             "NUMBER SIGNAL" it gets this signal instead; 0: only counts
//   s PATH                                  shows the file, or lists the folder, after the request
//   r                                       runs the program with the arguments so far
//
// The results are fields as well, for each request: how it ended ("exit", "signal" or "timeout"),
// the number of that, microseconds, the length of the trace before and after it, its standard
// output and its standard error, the number of system calls (with k), the kernel's number of the
// last one, and how many files are shown; then a field for each of those: "-" when there is none,
// else "+" and its content. A request is over when all that it left in the background has ended,
// too; one that does not end in time is killed with all of that.
//
// Usage: batch PROGRAM [ARGUMENT-BEFORE-THE-REQUEST'S...]
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#define TRACE "/.gateway/run/trace"
#define OUTPUT "/opt/batch-out"
#define ERRORS "/opt/batch-err"

struct Field {
    char* bytes;
    size_t length;
};

struct Request {
    char* arguments[64];
    int count;
    char* environment[64];
    int variables;
    const char* output;
    const char* handicap;
    const char* kill;
    char* shown[64];
    int shown_count;
};

static void fail(const char* what) {
    fprintf(stderr, "batch: %s: %s\n", what, strerror(errno));
    exit(125);
}

// The content of a file, with a NUL behind it; an empty one when there is no such file.
static struct Field file_read(const char* path) {
    struct Field content = {calloc(1, 1), 0};
    FILE* file = fopen(path, "rbe");
    if (!file) return content;
    char part[65536];
    for (size_t count; (count = fread(part, 1, sizeof part, file)) > 0;) {
        content.bytes = realloc(content.bytes, content.length + count + 1);
        if (!content.bytes) fail("memory");
        memcpy(content.bytes + content.length, part, count);
        content.length += count;
        content.bytes[content.length] = '\0';
    }
    fclose(file);
    return content;
}

static void file_write(const char* path, struct Field content) {
    FILE* file = fopen(path, "wbe");
    if (!file || fwrite(content.bytes, 1, content.length, file) != content.length) fail(path);
    fclose(file);
}

// The next field, ended by a NUL in the place of its comma.
static int field_next(struct Field* rest, struct Field* field) {
    if (rest->length == 0) return 0;
    char* end;
    field->length = strtoul(rest->bytes, &end, 10);
    field->bytes = end + 1;
    field->bytes[field->length] = '\0';
    size_t taken = (size_t)(end - rest->bytes) + field->length + 2;
    rest->bytes += taken;
    rest->length -= taken;
    return 1;
}

static void field_print(FILE* out, struct Field field) {
    fprintf(out, "%zu:", field.length);
    fwrite(field.bytes, 1, field.length, out);
    fputc(',', out);
}

static void number_print(FILE* out, long long number) {
    char text[32];
    struct Field field = {text, (size_t)snprintf(text, sizeof text, "%lld", number)};
    field_print(out, field);
}

static long long trace_length(void) {
    struct stat status;
    return stat(TRACE, &status) == 0 ? status.st_size : 0;
}

static int64_t now_microseconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000000 + now.tv_nsec / 1000;
}

static void redirect(int number, const char* path) {
    int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
    if (file < 0 || dup2(file, number) < 0) fail(path);
    close(file);
}

static void redirect_output(const char* kind) {
    int ends[2];
    if (strcmp(kind, "closed") == 0) {
        close(STDOUT_FILENO);
    } else if (strcmp(kind, "full") == 0) {
        if (dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO) < 0) fail("/dev/full");
    } else {
        if (pipe2(ends, O_CLOEXEC) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) fail("pipe");
    }
}

static void handicap_take(const char* what) {
    if (strcmp(what, "rights") == 0) {
        // CAP_DAC_OVERRIDE and CAP_DAC_READ_SEARCH
        if (prctl(PR_CAPBSET_DROP, 1) != 0 || prctl(PR_CAPBSET_DROP, 2) != 0) fail("rights");
    } else if (strcmp(what, "children") == 0) {
        signal(SIGCHLD, SIG_IGN);
    } else {
        struct rlimit limit = {strtoul(what, NULL, 10), strtoul(what, NULL, 10)};
        if (setrlimit(RLIMIT_NOFILE, &limit) != 0) fail("setrlimit");
    }
}

static pid_t request_start(const struct Request* request) {
    pid_t program = fork();
    if (program < 0) fail("fork");
    if (program > 0) return program;
    if (request->kill && (ptrace(PTRACE_TRACEME, 0, 0, 0) != 0 || raise(SIGSTOP) != 0))
        fail("ptrace");
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, NULL);
    for (int i = 0; i < request->variables; i++)
        putenv(request->environment[i]);
    redirect(STDERR_FILENO, ERRORS);
    redirect(STDOUT_FILENO, OUTPUT);
    if (request->output) redirect_output(request->output);
    if (request->handicap) handicap_take(request->handicap);
    execv(request->arguments[0], request->arguments);
    fail(request->arguments[0]);
    return -1;
}

// Waits for one child; 0 when the time is over, -1 when there is none left.
static pid_t child_wait(int* status, int64_t deadline) {
    sigset_t child_ended;
    sigemptyset(&child_ended);
    sigaddset(&child_ended, SIGCHLD);
    for (;;) {
        pid_t ended = waitpid(-1, status, WNOHANG);
        if (ended != 0) return ended;
        int64_t left = deadline - now_microseconds();
        if (left <= 0) return 0;
        struct timespec limit = {(time_t)(left / 1000000), (long)(left % 1000000 * 1000)};
        sigtimedwait(&child_ended, NULL, &limit);
    }
}

// Everything but this process and the gateway's own helpers comes from the request: those helpers
// are not below this process, so only its children are killed, as long as there are any.
static void children_kill(void) {
    char path[64];
    snprintf(path, sizeof path, "/proc/self/task/%d/children", (int)getpid());
    for (;;) {
        struct Field children = file_read(path);
        if (children.length == 0) return;
        char* at = children.bytes;
        for (long pid; (pid = strtol(at, &at, 10)) > 0;) {
            kill((pid_t)pid, SIGKILL);
            waitpid((pid_t)pid, NULL, 0);
        }
        free(children.bytes);
    }
}

// What a traced program came to.
struct Traced {
    long calls;
    long last;  // the kernel's number of the last system call
};

// Follows the program from its start (not what it starts itself) to its end, and kills it, or sends
// it a signal, at a system call.
static struct Traced program_trace(pid_t program, const char* kill_at, int* status) {
    const bool everything = strncmp(kill_at, "all ", 4) == 0;
    char* rest;
    const long at = strtol(everything ? kill_at + 4 : kill_at, &rest, 10);
    const int sent = *rest ? atoi(rest) : SIGKILL;
    struct Traced traced = {0};
    bool started = false;
    bool inside = false;
    if (waitpid(program, status, 0) != program ||
        ptrace(PTRACE_SETOPTIONS, program, 0, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0)
        fail("ptrace");
    for (int signal_for_it = 0;; signal_for_it = 0) {
        if (WIFSTOPPED(*status) && WSTOPSIG(*status) == (SIGTRAP | 0x80)) {
            inside = started && !inside;
            if (inside) {
                struct __ptrace_syscall_info info = {0};
                ptrace(PTRACE_GET_SYSCALL_INFO, program, sizeof info, &info);
                traced.last = (long)info.entry.nr;
                if (++traced.calls == at) {
                    kill(program, sent);
                    if (everything) children_kill();
                }
            }
        } else if (WSTOPSIG(*status) == SIGTRAP) {
            started = true;  // the exec came back
        } else if (WSTOPSIG(*status) != SIGSTOP) {
            signal_for_it = WSTOPSIG(*status);
        }
        if (ptrace(PTRACE_SYSCALL, program, 0, signal_for_it) != 0 && errno != ESRCH)
            fail("ptrace");
        if (waitpid(program, status, 0) != program) {  // children_kill() was there
            *status = SIGKILL;
            return traced;
        }
        if (!WIFSTOPPED(*status)) return traced;
    }
}

static void file_show(const char* path, FILE* results) {
    struct Field shown = {0};
    FILE* out = open_memstream(&shown.bytes, &shown.length);
    DIR* folder = opendir(path);
    if (folder) {
        fputc('+', out);
        for (struct dirent* entry; (entry = readdir(folder));)
            fprintf(out, "%s\n", entry->d_name);
        closedir(folder);
    } else if (access(path, F_OK) == 0) {
        struct Field content = file_read(path);
        fputc('+', out);
        fwrite(content.bytes, 1, content.length, out);
        free(content.bytes);
    } else {
        fputc('-', out);
    }
    fclose(out);
    field_print(results, shown);
    free(shown.bytes);
}

static void request_run(const struct Request* request, int64_t limit, FILE* results) {
    long long before = trace_length();
    int64_t start = now_microseconds();
    pid_t program = request_start(request);
    int status = 0;
    pid_t ended = program;
    struct Traced traced = {0};
    if (request->kill) {
        traced = program_trace(program, request->kill, &status);
    } else {
        do {
            ended = child_wait(&status, start + limit);
        } while (ended > 0 && ended != program);
    }
    int64_t took = now_microseconds() - start;
    const char* how = ended != program ? "timeout" : WIFSIGNALED(status) ? "signal" : "exit";
    int number = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);

    int ignored;
    do {
        ended = child_wait(&ignored, start + limit);
    } while (ended > 0);
    if (ended == 0) {
        how = "timeout";
        children_kill();
    }
    field_print(results, (struct Field){(char*)how, strlen(how)});
    number_print(results, number);
    number_print(results, took);
    number_print(results, before);
    number_print(results, trace_length());
    const char* files[] = {OUTPUT, ERRORS};
    for (int i = 0; i < 2; i++) {
        struct Field content = file_read(files[i]);
        field_print(results, content);
        free(content.bytes);
    }
    number_print(results, traced.calls);
    number_print(results, traced.last);
    number_print(results, request->shown_count);
    for (int i = 0; i < request->shown_count; i++)
        file_show(request->shown[i], results);
}

int main(int argc, char** argv) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    sigset_t child_ended;
    sigemptyset(&child_ended);
    sigaddset(&child_ended, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child_ended, NULL);

    struct Field rest = file_read("/opt/requests");
    FILE* results = fopen("/opt/results", "wbe");
    if (!results || argc < 2) fail("/opt/results");
    int64_t limit = 20 * 1000000;
    struct Request request = {0};
    for (struct Field field; field_next(&rest, &field);) {
        char* word = field.bytes + 1;
        struct Field content;
        switch (field.bytes[0]) {
            case 'f':
                if (field_next(&rest, &content)) file_write(word, content);
                break;
            case 'x':
                unlink(word);
                break;
            case 'e':
                request.environment[request.variables++] = word;
                break;
            case 'o':
                request.output = word;
                break;
            case 'h':
                request.handicap = word;
                break;
            case 'k':
                request.kill = word;
                break;
            case 's':
                request.shown[request.shown_count++] = word;
                break;
            case 'l':
                limit = (int64_t)(atof(word) * 1000000);
                break;
            case 'a':
                if (request.count == 0) {
                    for (int i = 1; i < argc; i++)
                        request.arguments[request.count++] = argv[i];
                }
                request.arguments[request.count++] = word;
                break;
            case 'r':
                request_run(&request, limit, results);
                memset(&request, 0, sizeof request);
                break;
            default:
                fail("a field of /opt/requests");
        }
    }
    unlink(OUTPUT);
    unlink(ERRORS);
    return fclose(results) == 0 ? 0 : 125;
}
