// libnvram.so: the calls of include/nvram.h over a store with a committed copy.
#pragma GCC visibility push(default)
#include "nvram.h"
#pragma GCC visibility pop

#include <errno.h>

#include "store/kept_text.h"
#include "store/store.h"

char* nvram_get(const char* name) {
    return name ? text_keep(name, store_get(kNvram, name)) : nullptr;
}

int nvram_set(const char* name, const char* value) {
    if (!name || !value) {
        errno = EINVAL;
        return -1;
    }
    const std::string_view text = value;
    return store_change(kNvram, name, &text) ? 0 : -1;
}

int nvram_commit(void) {
    return store_commit(kNvram) ? 0 : -1;
}
