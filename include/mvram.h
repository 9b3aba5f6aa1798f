// The gateway's second key-value store, as libmvram.so offers it: run-time values, no commit.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// The value of a key, or null when the key is absent (or the store cannot be read). The library
// owns the text; it stays valid until the calling process ends.
char* mvram_get(const char* name);

// Gives a key a value. 0 on success, negative on failure.
int mvram_set(const char* name, const char* value);

#ifdef __cplusplus
}
#endif
