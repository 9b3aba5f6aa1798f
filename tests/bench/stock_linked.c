// The stock NVRAM library, linked the usual way.
#include "nvram.h"
#include "operations.h"

int value_get(void) {
    return nvram_get(BENCH_KEY) == NULL;
}
int value_set(const char* value) {
    return nvram_set(BENCH_KEY, value) != 0;
}
int value_commit(void) {
    return nvram_commit() != 0;
}
