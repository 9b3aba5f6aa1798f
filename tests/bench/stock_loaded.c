// The stock NVRAM library, loaded on first use as `cpectl` does it.
#include <dlfcn.h>

#include "operations.h"

static void* call_find(const char* name) {
    void* library = dlopen("libnvram.so", RTLD_LAZY);
    return library ? dlsym(library, name) : NULL;
}

int value_get(void) {
    char* (*get)(const char*) = (char* (*)(const char*))call_find("nvram_get");
    return !get || get(BENCH_KEY) == NULL;
}

int value_set(const char* value) {
    int (*set)(const char*, const char*) =
        (int (*)(const char*, const char*))call_find("nvram_set");
    return !set || set(BENCH_KEY, value) != 0;
}

int value_commit(void) {
    int (*commit)(void) = (int (*)(void))call_find("nvram_commit");
    return !commit || commit() != 0;
}
