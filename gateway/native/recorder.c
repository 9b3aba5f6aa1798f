// Stands at the path of a script or tool of the gateway: records its path and its arguments, then
// does what the prepared steps for this call say.
//
// The steps are in the run's file "scripts". Bytes are in hexadecimal, "-" for none:
//   call PATH WORD...   begins the steps for calls of PATH whose first arguments are these words
//   out BYTES           writes to standard output
//   err BYTES           writes to standard error
//   sleep MILLISECONDS
//   await MILLISECONDS  waits until the program has ended, so long at most
//   run FILE            becomes a shell script of the run's directory, with the call's arguments
//   exit STATUS
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/auxv.h>
#include <time.h>
#include <unistd.h>

#include "trace.h"

static void record(const char* path, int argc, char** argv) {
    const char* mark = getenv(SHELL_MARK);
    struct Line line = {0};
    line_text(&line, "{\"script\":");
    line_json(&line, path);
    line_text(&line, ",\"args\":[");
    for (int i = 1; i < argc; i++) {
        if (i > 1) line_text(&line, ",");
        line_json(&line, argv[i]);
    }
    line_text(&line, "],\"by\":");
    line_number(&line, mark ? atoll(mark) : 0);
    line_text(&line, "}");
    trace_write(&line);
}

// The number of words that the call names when they agree with the arguments, else -1.
static int call_match(char* rest, const char* path, int argc, char** argv) {
    char* called = word_next(&rest);
    if (!called) return -1;
    hex_decode(called);
    if (strcmp(called, path) != 0) return -1;
    int words = 0;
    for (char* word; (word = word_next(&rest)); words++) {
        hex_decode(word);
        if (words + 1 >= argc || strcmp(word, argv[words + 1]) != 0) return -1;
    }
    return words;
}

// The offset of the steps with the most agreeing words, of later ones among equals; -1: none.
static long steps_find(FILE* file, const char* path, int argc, char** argv) {
    long found = -1;
    int most = -1;
    char* line = NULL;
    size_t room = 0;
    while (getline(&line, &room, file) >= 0) {
        if (strncmp(line, "call ", 5) != 0) continue;
        int words = call_match(line + 5, path, argc, argv);
        if (words < 0 || words < most) continue;
        most = words;
        found = ftell(file);
    }
    free(line);
    return found;
}

static void wait_milliseconds(long count) {
    struct timespec left = {count / 1000, count % 1000 * 1000000};
    while (nanosleep(&left, &left) != 0) {
    }
}

// The file "result" is made when the program has ended.
static void wait_for_end(long milliseconds) {
    const long pause = 10;
    for (; milliseconds > 0; milliseconds -= pause) {
        if (access(RUN_DIR "/result", F_OK) == 0) return;
        wait_milliseconds(pause);
    }
}

static void become_script(char* name, char** argv) {
    hex_decode(name);
    char path[256];
    snprintf(path, sizeof path, RUN_DIR "/%s", name);
    size_t count = 0;
    while (argv[count])
        count++;
    char** words = calloc(count + 2, sizeof *words);
    if (!words) exit(127);
    words[0] = (char[]){"sh"};
    words[1] = path;
    for (size_t i = 1; i < count; i++)
        words[i + 1] = argv[i];
    execv("/bin/busybox", words);
    perror(path);
    exit(127);
}

static void write_bytes(char* hex, FILE* stream) {
    size_t count = hex_decode(hex);
    fwrite(hex, 1, count, stream);
    fflush(stream);
}

static void step_do(const char* step, char* word, char** argv) {
    if (strcmp(step, "out") == 0) write_bytes(word, stdout);
    if (strcmp(step, "err") == 0) write_bytes(word, stderr);
    if (strcmp(step, "sleep") == 0) wait_milliseconds(atol(word));
    if (strcmp(step, "await") == 0) wait_for_end(atol(word));
    if (strcmp(step, "run") == 0) become_script(word, argv);
}

// Does the steps up to the next call; returns the exit status.
static int steps_do(FILE* file, char** argv) {
    char* line = NULL;
    size_t room = 0;
    while (getline(&line, &room, file) >= 0) {
        char* rest = line;
        char* step = word_next(&rest);
        char* word = word_next(&rest);
        if (!step || !word || strcmp(step, "call") == 0) break;
        if (strcmp(step, "exit") == 0) return atoi(word);
        step_do(step, word, argv);
    }
    return 0;
}

// The password tool always has something to say: four bytes, then digits that depend on the word.
static int password_print(const char* word) {
    uint64_t hash = 14695981039346656037u;
    for (const unsigned char* at = (const unsigned char*)word; *at; at++) {
        hash = (hash ^ *at) * 1099511628211u;
    }
    printf("ENC:%016llx\n", (unsigned long long)hash);
    return 0;
}

int main(int argc, char** argv) {
    // The path as it was executed; argv[0] would be the bare name after a search along PATH.
    const char* path = (const char*)getauxval(AT_EXECFN);
    if (!path) path = argv[0];
    record(path, argc, argv);

    FILE* file = run_file("scripts");
    long steps = file ? steps_find(file, path, argc, argv) : -1;
    if (steps >= 0 && fseek(file, steps, SEEK_SET) == 0) return steps_do(file, argv);
    if (strcmp(path, "/sbin/cpecryptpw") == 0) return password_print(argc > 1 ? argv[1] : "");
    return 0;
}
