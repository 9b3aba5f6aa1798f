// What every store of the comparison does in one process: `get`, `set` or `commit` of one key.
#pragma once

#include <stdio.h>
#include <string.h>
#include <time.h>

#define BENCH_KEY "KEY_050"

// A value that the store does not hold yet.
static inline const char* fresh_value(void) {
    static char value[64];
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    snprintf(value, sizeof value, "value %lld.%09ld", (long long)time.tv_sec, time.tv_nsec);
    return value;
}

int value_get(void);               // 0 when the key has a value
int value_set(const char* value);  // 0 when every process now sees it
int value_commit(void);            // 0 when it will survive a power cut

int main(int argc, char** argv) {
    const char* operation = argc > 1 ? argv[1] : "";
    if (strcmp(operation, "get") == 0) return value_get();
    if (strcmp(operation, "set") == 0) return value_set(fresh_value());
    if (strcmp(operation, "commit") == 0) return value_commit();
    if (strcmp(operation, "set+commit") == 0) return value_set(fresh_value()) || value_commit();
    return 2;
}
