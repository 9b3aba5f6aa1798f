// A key-value store shared by all processes of the gateway: one text file, replaced whole under a
// lock. What libnvram.so, libmvram.so and the `nvram` tool have in common.
//
// The running copy is what gets read and sets change. A store may have a committed copy as well,
// which only store_commit() writes; while there is no running copy (the gateway has just been
// started), the committed one is read in its place, and the first change starts from it.
// substitutes/README.md describes the files and where they are.
//
// Every function can be called by several threads and processes at once.
#pragma once

#include <string_view>

#include "store/whole_file.h"

struct Store {
    const char* name;  // of its files
    bool has_committed_copy;
};

inline constexpr Store kNvram = {"nvram", true};
inline constexpr Store kMvram = {"mvram", false};

// Reads the whole text of a store, empty when it has no file yet; the caller frees it. False, with
// errno, when it cannot be read.
[[nodiscard]] bool store_read(const Store& store, FileContent& content);

// The value of a key, terminated, made by malloc. Null when there is none: errno is then 0 when
// the key is absent and says what went wrong otherwise.
[[nodiscard]] char* store_get(const Store& store, std::string_view key);

// Gives a key a value, or removes it when `value` is null. Nothing is written when the store
// already is like that. False, with errno, on failure, and the store is then unchanged: EINVAL for
// an impossible key, EFBIG for a value or a store that would be too long.
[[nodiscard]] bool store_change(const Store& store, std::string_view key,
                                const std::string_view* value);

// Makes the committed copy equal to the running one, and returns when it will survive a power
// cut. Nothing is written when it is equal already, or when there is no running copy. False, with
// errno, on failure.
[[nodiscard]] bool store_commit(const Store& store);
