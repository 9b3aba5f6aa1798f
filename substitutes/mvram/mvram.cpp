// libmvram.so: the calls of include/mvram.h over a store that only has a running copy.
#pragma GCC visibility push(default)
#include "mvram.h"
#pragma GCC visibility pop

#include <errno.h>

#include "store/kept_text.h"
#include "store/store.h"

char* mvram_get(const char* name) {
    return name ? text_keep(name, store_get(kMvram, name)) : nullptr;
}

int mvram_set(const char* name, const char* value) {
    if (!name || !value) {
        errno = EINVAL;
        return -1;
    }
    const std::string_view text = value;
    return store_change(kMvram, name, &text) ? 0 : -1;
}
