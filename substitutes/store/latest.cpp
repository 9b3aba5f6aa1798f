// The text of a store as this process has read it last; see latest.h.
#include "store/latest.h"

#include <stdlib.h>
#include <time.h>

// A file whose last change is at least this old when it is read will have another mark after the
// next change, on a file system that counts times in steps of up to two seconds, too.
static constexpr std::int64_t kSettled = 2500000000;  // nanoseconds

bool latest_take(Latest& latest) {
    return !__atomic_exchange_n(&latest.busy, true, __ATOMIC_ACQUIRE);
}

void latest_release(Latest& latest) {
    __atomic_store_n(&latest.busy, false, __ATOMIC_RELEASE);
}

std::int64_t latest_now() {
    timespec time;
    clock_gettime(CLOCK_REALTIME_COARSE, &time);
    return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

bool latest_is(const Latest& latest, const FileMark& mark) {
    return latest.lasting && latest.mark == mark;
}

void latest_set(Latest& latest, const FileContent& content, const FileMark& mark,
                std::int64_t before) {
    // (The first use of free() costs more than this question.)
    if (latest.content.data) free(latest.content.data);
    latest.content = content;
    latest.mark = mark;
    latest.lasting = mark.changed < before - kSettled && mark.written < before - kSettled;
}
