// Preloaded into a program: makes one of its allocations fail.
//
//   FAIL_AT     the number of the allocation that fails, counted from 1; 0: none
//   FAIL_SCOPE  "program": only what the program itself and the JSON library ask for counts;
//               "all": also what the C library and the platform libraries need for themselves
//   FAIL_COUNT  a file that takes the number of allocations at the end
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <malloc.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* old, size_t size);

static bool active;  // only from the program's start on: the loader's own needs do not count
static bool everything;
static long fail_at;
static long count;

static bool has_end(const char* text, const char* end) {
    const size_t length = strlen(text);
    return length >= strlen(end) && strcmp(text + length - strlen(end), end) == 0;
}

static bool counts(const void* caller) {
    if (!active) return false;
    if (everything) return true;
    Dl_info where;
    if (!dladdr(caller, &where) || !where.dli_fname) return false;
    return has_end(where.dli_fname, "cpectl") || strstr(where.dli_fname, "libcjson");
}

static bool fails(const void* caller) {
    return counts(caller) && ++count == fail_at;
}

void* malloc(size_t size) {
    return fails(__builtin_return_address(0)) ? NULL : __libc_malloc(size);
}

void* calloc(size_t number, size_t size) {
    return fails(__builtin_return_address(0)) ? NULL : __libc_calloc(number, size);
}

void* realloc(void* old, size_t size) {
    return fails(__builtin_return_address(0)) ? NULL : __libc_realloc(old, size);
}

// The C library's own would count as that library's need, not as the program's.
char* strdup(const char* text) {
    const size_t size = strlen(text) + 1;
    char* copy = fails(__builtin_return_address(0)) ? NULL : __libc_malloc(size);
    return copy ? memcpy(copy, text, size) : NULL;
}

__attribute__((constructor)) static void begin(void) {
    if (!has_end(program_invocation_name, "cpectl")) return;
    const char* at = getenv("FAIL_AT");
    const char* scope = getenv("FAIL_SCOPE");
    fail_at = at ? atol(at) : 0;
    everything = scope && strcmp(scope, "all") == 0;
    active = true;
}

__attribute__((destructor)) static void end(void) {
    const char* path = getenv("FAIL_COUNT");
    if (!active || !path) return;
    active = false;
    char text[32];
    const int length = snprintf(text, sizeof text, "%ld\n", count);
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file >= 0 && write(file, text, (size_t)length) == length) close(file);
}
