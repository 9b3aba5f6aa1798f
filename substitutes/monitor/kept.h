// What a library keeps from one run of the program to the next: one small file in the gateway's
// run-time folder, read whole, and replaced whole under a lock. substitutes/MONITORING.md lists the
// files.
#pragma once

#include <cstdint>
#include <string_view>

#include "store/whole_file.h"

// The system and the network that kept figures are about. Figures from before a restart, or from
// another network namespace, mean nothing: interface numbers, counters and clock begin anew.
struct Surroundings {
    char boot[40];          // the kernel's identifier of this start; empty when it tells none
    std::uint64_t network;  // the network namespace; 0 when the kernel is too old to tell
};
static_assert(sizeof(Surroundings) == 48);

Surroundings surroundings_now();
bool surroundings_equal(const Surroundings& one, const Surroundings& other);

// Takes the lock of the file with this name and waits for it. A lock for lock_release(), or -1 when
// there can be none; nothing is to be written then.
[[nodiscard]] int kept_lock(const char* name);

// Reads a kept file of at most `size_max` bytes; the caller frees the content. No lock is needed.
[[nodiscard]] bool kept_read(const char* name, std::size_t size_max, FileContent& content);

// Replaces a kept file; the caller holds its lock. A file that cannot be written stays as it was.
[[nodiscard]] bool kept_replace(const char* name, std::string_view content);
