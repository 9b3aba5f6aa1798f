// Calls one of the store libraries as the tests want it: from a script on standard input, or as one
// of many processes that write and read at once.
//
// usage: driver LIBRARY PREFIX serve
//        driver LIBRARY PREFIX hammer WRITER WRITERS THREADS MILLISECONDS
//        driver LIBRARY PREFIX churn KEYS
// PREFIX is that of the library's calls: nvram or mvram.
#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum { kTextMax = 1 << 18, kKeysOfWriter = 4, kWritersMax = 64 };

static char* (*store_get)(const char*);
static int (*store_set)(const char*, const char*);
static int (*store_commit)(void);  // null for a store without

__attribute__((noreturn, format(printf, 1, 2))) static void die(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    fputc('\n', stderr);
    exit(1);
}

static void* call_find(void* library, const char* prefix, const char* name) {
    char symbol[64];
    snprintf(symbol, sizeof symbol, "%s_%s", prefix, name);
    return dlsym(library, symbol);
}

// ---- serve: one command a line; texts as "=" and hexadecimal, "-" for null; one answer a line
// ----

static char* text_of_hex(const char* hex) {
    if (!hex || *hex != '=') return NULL;
    ++hex;
    const size_t size = strlen(hex) / 2;
    char* text = calloc(1, size + 1);
    for (size_t i = 0; i < size; ++i) {
        unsigned byte = 0;
        sscanf(hex + 2 * i, "%2x", &byte);
        text[i] = (char)byte;
    }
    return text;
}

static void hex_print(const char* text) {
    for (; *text; ++text)
        printf("%02x", (unsigned char)*text);
}

static void get_answer(const char* key) {
    const char* value = store_get(key);
    if (!value) {
        puts("-");
        return;
    }
    printf("%p ", (const void*)value);
    hex_print(value);
    putchar('\n');
}

// errno is to be the call's own.
static void result_answer(int result) {
    printf("%d %d\n", result, errno);
}

static int serve(void) {
    static char line[2 * kTextMax];
    char* given = NULL;  // the first text that the library gave out
    while (fgets(line, sizeof line, stdin)) {
        const char* command = strtok(line, " \n");
        if (!command) continue;
        char* first = text_of_hex(strtok(NULL, " \n"));
        char* second = text_of_hex(strtok(NULL, " \n"));
        errno = 0;
        if (strcmp(command, "get") == 0) get_answer(first);
        if (strcmp(command, "set") == 0) result_answer(store_set(first, second));
        if (strcmp(command, "commit") == 0) result_answer(store_commit());
        if (strcmp(command, "hold") == 0) puts((given = store_get(first)) ? "held" : "-");
        if (strcmp(command, "held") == 0) hex_print(given), putchar('\n');
        fflush(stdout);
        free(first);
        free(second);
    }
    return 0;
}

// ---- hammer: values say who wrote them and how long they are, so that a torn one shows ----

static void value_make(char* value, size_t size, int writer, int key, long count) {
    const int fill = (int)((count * 37 + key * 101) % 3000);
    const int head = snprintf(value, size, "%d:%d:%ld:%d:", writer, key, count, fill);
    memset(value + head, 'a' + (int)(count % 26), (size_t)fill);
    value[head + fill] = '\0';
}

// The count in a value that has to be one of this writer and key.
static long value_check(const char* value, int writer, int key) {
    static __thread char expected[4096];
    int found_writer;
    int found_key;
    long count;
    if (sscanf(value, "%d:%d:%ld:", &found_writer, &found_key, &count) != 3)
        die("torn value: %.60s", value);
    value_make(expected, sizeof expected, writer, key, count);
    if (strcmp(value, expected) != 0) die("torn value: %.60s", value);
    return count;
}

static void key_make(char* key, size_t size, int writer, int number) {
    snprintf(key, size, "W%d_K%d", writer, number);
}

struct Hammer {
    pthread_t thread;
    int writer;
    int writers;
    int milliseconds;
    long counts[kKeysOfWriter];             // the last one that was written
    long seen[kWritersMax][kKeysOfWriter];  // the last one that was read
};

static long milliseconds_now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1000 + time.tv_nsec / 1000000;
}

static void write_one(struct Hammer* hammer, long count) {
    static __thread char value[4096];
    char key[32];
    const int number = (int)(count % kKeysOfWriter);
    key_make(key, sizeof key, hammer->writer, number);
    value_make(value, sizeof value, hammer->writer, number, count);
    if (store_set(key, value) != 0) die("set of %s failed: %s", key, strerror(errno));
    hammer->counts[number] = count;
    const char* now = store_get(key);
    if (!now || strcmp(now, value) != 0) die("%s is not what was just set", key);
}

static void read_one(struct Hammer* hammer, int writer, int number) {
    char key[32];
    key_make(key, sizeof key, writer, number);
    const char* value = store_get(key);
    long* seen = &hammer->seen[writer][number];
    if (!value && *seen > 0) die("%s is lost", key);
    if (!value) return;
    const long count = value_check(value, writer, number);
    if (count < *seen) die("%s went back from %ld to %ld", key, *seen, count);
    *seen = count;
}

static void* hammer_run(void* argument) {
    struct Hammer* hammer = argument;
    const long end = milliseconds_now() + hammer->milliseconds;
    unsigned seed = (unsigned)hammer->writer;
    for (long count = 1; milliseconds_now() < end; ++count) {
        write_one(hammer, count);
        read_one(hammer, rand_r(&seed) % hammer->writers, rand_r(&seed) % kKeysOfWriter);
        if (store_commit && count % 16 == 0 && store_commit() != 0)
            die("commit failed: %s", strerror(errno));
    }
    return NULL;
}

static int hammer(int writer, int writers, int threads, int milliseconds) {
    struct Hammer* hammers = calloc((size_t)threads, sizeof *hammers);
    if (writers > kWritersMax) die("too many writers");
    for (int i = 0; i < threads; ++i) {
        hammers[i].writer = writer + i;
        hammers[i].writers = writers;
        hammers[i].milliseconds = milliseconds;
        pthread_create(&hammers[i].thread, NULL, hammer_run, &hammers[i]);
    }
    for (int i = 0; i < threads; ++i) {
        pthread_join(hammers[i].thread, NULL);
        for (int key = 0; key < kKeysOfWriter; ++key) {
            static char value[4096];
            value_make(value, sizeof value, writer + i, key, hammers[i].counts[key]);
            printf("W%d_K%d=%s\n", writer + i, key, hammers[i].counts[key] ? value : "");
        }
    }
    free(hammers);
    return 0;
}

// ---- churn: sets key after key to the next round's value, commits, and so on until killed ----

enum { kFillOfKey = 50, kChurnKeysMax = 40 };

static int churn(int keys) {
    static char value[kFillOfKey * kChurnKeysMax + 32];
    if (keys > kChurnKeysMax) die("too many keys");
    char last_key[32];
    snprintf(last_key, sizeof last_key, "K%d", keys - 1);
    const char* last = store_get(last_key);
    long round = last ? atol(last) : 0;  // of the round that is complete
    puts("started");
    fflush(stdout);
    for (;;) {
        ++round;
        for (int i = 0; i < keys; ++i) {
            char key[32];
            snprintf(key, sizeof key, "K%d", i);
            const int head = snprintf(value, sizeof value, "%ld:", round);
            memset(value + head, 'x', (size_t)(kFillOfKey * (i + 1)));
            value[head + kFillOfKey * (i + 1)] = '\0';
            if (store_set(key, value) != 0) die("set failed: %s", strerror(errno));
            if (i % 8 == 3 && store_commit() != 0) die("commit failed: %s", strerror(errno));
        }
        if (store_commit() != 0) die("commit failed: %s", strerror(errno));
    }
}

int main(int argc, char** argv) {
    if (argc < 4) die("usage: driver LIBRARY PREFIX COMMAND ARGUMENT...");
    void* library = dlopen(argv[1], RTLD_NOW);
    if (!library) die("%s", dlerror());
    *(void**)&store_get = call_find(library, argv[2], "get");
    *(void**)&store_set = call_find(library, argv[2], "set");
    *(void**)&store_commit = call_find(library, argv[2], "commit");
    if (!store_get || !store_set) die("%s lacks calls", argv[1]);
    if (strcmp(argv[3], "serve") == 0) return serve();
    if (strcmp(argv[3], "hammer") == 0 && argc == 8)
        return hammer(atoi(argv[4]), atoi(argv[5]), atoi(argv[6]), atoi(argv[7]));
    if (strcmp(argv[3], "churn") == 0 && argc == 5) return churn(atoi(argv[4]));
    die("no command %s", argv[3]);
}
