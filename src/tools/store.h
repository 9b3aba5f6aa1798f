// The two key-value stores, as handlers use them: absent keys read as empty text, and a key is
// written only when that changes something.
#pragma once

// The value of a key; empty text when the key is absent. Never null. Some libraries keep one buffer
// for all values: take a copy before the next call of the same store.
const char* nvram_text(const char* key);
const char* mvram_text(const char* key);

// Writes a key when it is absent or holds another value. The store's own result is ignored.
void nvram_update(const char* key, const char* value);
void mvram_update(const char* key, const char* value);
