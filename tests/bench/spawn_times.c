// Times whole processes against each other: starts each candidate once a round, in a new random
// order every round, all on one processor and, where that is allowed, before every process that
// does not measure, and prints what each start took.
//
// usage: spawn_times ROUNDS CANDIDATE -- CANDIDATE -- ...
// CANDIDATE: NAME [=STATUS] [@FROM:TO]... [+NAME=VALUE] PROGRAM ARGUMENT...
//   =STATUS      how it ends; else with 0, and anything else is a failure of the measurement
//   @FROM:TO     a file that is copied before each start
//   +NAME=VALUE  one more variable of its environment
// Prints one line a candidate: its name, its peak resident size in KiB (median) and ROUNDS wall
// times in nanoseconds. What it prints goes nowhere.
#include <fcntl.h>
#include <inttypes.h>
#include <sched.h>
#include <spawn.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "ahead.h"

enum { kCandidatesMax = 96, kCopiesMax = 3 };

struct Copy {
    const char* from;
    const char* to;
};

struct Candidate {
    const char* name;
    int status;
    struct Copy copies[kCopiesMax];
    char** environment;
    char** arguments;
    int64_t* times;
    int64_t* sizes;
};

extern char** environ;

static int64_t now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (int64_t)time.tv_sec * 1000000000 + time.tv_nsec;
}

static bool file_copy(const struct Copy* copy) {
    char content[65536];
    const int in = open(copy->from, O_RDONLY);
    const int out = open(copy->to, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ssize_t count = -1;
    while (in >= 0 && out >= 0 && (count = read(in, content, sizeof content)) > 0) {
        if (write(out, content, (size_t)count) != count) break;
    }
    close(in);
    close(out);
    return count == 0;
}

// Starts the candidate once and fills `time` and `size`; false when that failed.
static bool measure_once(const struct Candidate* candidate,
                         const posix_spawn_file_actions_t* actions, int64_t* time, int64_t* size) {
    for (const struct Copy* copy = candidate->copies; copy->from; copy++) {
        if (!file_copy(copy)) return false;
    }
    pid_t child;
    int status;
    struct rusage usage;
    const int64_t start = now();
    if (posix_spawn(&child, candidate->arguments[0], actions, NULL, candidate->arguments,
                    candidate->environment))
        return false;
    if (wait4(child, &status, 0, &usage) != child) return false;
    *time = now() - start;
    *size = usage.ru_maxrss;
    return WIFEXITED(status) && WEXITSTATUS(status) == candidate->status;
}

static void shuffle(int* order, int count) {
    for (int i = count - 1; i > 0; --i) {
        const int j = (int)(random() % (i + 1));
        const int kept = order[i];
        order[i] = order[j];
        order[j] = kept;
    }
}

// An environment and one more variable.
static char** environment_with(char** environment, char* variable) {
    size_t count = 0;
    while (environment[count])
        count++;
    char** made = calloc(count + 2, sizeof *made);
    if (!made) abort();
    memcpy(made, environment, count * sizeof *made);
    made[count] = variable;
    return made;
}

// Takes the words before the program.
static char** options_parse(char** words, struct Candidate* candidate) {
    int copies = 0;
    candidate->environment = environ;
    for (; *words && strchr("=@+", **words); words++) {
        char* colon = strchr(*words, ':');
        if (**words == '=') {
            candidate->status = atoi(*words + 1);
        } else if (**words == '+') {
            candidate->environment = environment_with(candidate->environment, *words + 1);
        } else if (colon && copies < kCopiesMax - 1) {
            *colon = '\0';
            candidate->copies[copies++] = (struct Copy){*words + 1, colon + 1};
        }
    }
    return words;
}

static int candidates_parse(char** words, struct Candidate* candidates, int rounds) {
    int count = 0;
    while (*words && words[1] && count < kCandidatesMax) {
        struct Candidate* candidate = &candidates[count++];
        candidate->name = *words++;
        words = options_parse(words, candidate);
        candidate->arguments = words;
        candidate->times = calloc((size_t)rounds, sizeof *candidate->times);
        candidate->sizes = calloc((size_t)rounds, sizeof *candidate->sizes);
        while (*words && strcmp(*words, "--") != 0)
            ++words;
        if (*words) *words++ = NULL;
    }
    return count;
}

static int number_compare(const void* left, const void* right) {
    const int64_t a = *(const int64_t*)left, b = *(const int64_t*)right;
    return a < b ? -1 : a > b;
}

static void candidate_print(const struct Candidate* candidate, int rounds) {
    qsort(candidate->sizes, (size_t)rounds, sizeof *candidate->sizes, number_compare);
    printf("%s %" PRId64, candidate->name, candidate->sizes[rounds / 2]);
    for (int round = 0; round < rounds; ++round)
        printf(" %" PRId64, candidate->times[round]);
    printf("\n");
}

// A process that changes its processor finds nothing of its own in the caches there.
static void processor_keep(void) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof one, &one);
}

int main(int argc, char** argv) {
    static struct Candidate candidates[kCandidatesMax];
    int order[kCandidatesMax];
    const int rounds = argc > 3 ? atoi(argv[1]) : 0;
    if (rounds <= 0) return 2;
    const int count = candidates_parse(argv + 2, candidates, rounds);
    for (int i = 0; i < count; ++i)
        order[i] = i;
    srandom((unsigned)now());
    processor_keep();
    run_ahead();

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);

    const int warm_up = 3;  // rounds that do not count: they bring files and pages in
    for (int round = -warm_up; round < rounds; ++round) {
        shuffle(order, count);
        for (int i = 0; i < count; ++i) {
            const struct Candidate* candidate = &candidates[order[i]];
            const int kept = round < 0 ? 0 : round;
            if (!measure_once(candidate, &actions, &candidate->times[kept],
                              &candidate->sizes[kept])) {
                fprintf(stderr, "spawn_times: %s failed\n", candidate->name);
                return 1;
            }
        }
    }
    for (int i = 0; i < count; ++i)
        candidate_print(&candidates[i], rounds);
    return 0;
}
