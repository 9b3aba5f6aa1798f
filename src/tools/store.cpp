// The two key-value stores, as handlers use them.
#include "tools/store.h"

#include <string_view>

#include "mvram.h"
#include "nvram.h"

namespace {

// Whether a key that holds `now` (null: absent) has to be written to hold `value`.
bool differs(const char* now, const char* value) {
    return !now || std::string_view(now) != value;
}

}  // namespace

const char* nvram_text(const char* key) {
    const char* value = nvram_get(key);
    return value ? value : "";
}

const char* mvram_text(const char* key) {
    const char* value = mvram_get(key);
    return value ? value : "";
}

void nvram_update(const char* key, const char* value) {
    if (differs(nvram_get(key), value)) nvram_set(key, value);
}

void mvram_update(const char* key, const char* value) {
    if (differs(mvram_get(key), value)) mvram_set(key, value);
}
