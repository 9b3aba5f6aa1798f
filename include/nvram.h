// The gateway's non-volatile key-value store, as libnvram.so offers it.
//
// Keys and values are NUL-terminated text. A set is seen by every process at once; it outlives a
// restart of the gateway only after a commit.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// The value of a key, or null when the key is absent (or the store cannot be read). The library
// owns the text; it stays valid until the calling process ends.
char* nvram_get(const char* name);

// Gives a key a value in the running store. 0 on success, negative on failure.
int nvram_set(const char* name, const char* value);

// Writes the running store to flash. 0 on success, negative on failure.
int nvram_commit(void);

#ifdef __cplusplus
}
#endif
