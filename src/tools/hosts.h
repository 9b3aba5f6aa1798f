// Walking the table of hosts behind the gateway, and the MAC texts of its answers.
#pragma once

#include <cstddef>
#include <span>

#include "hostsort.h"

inline constexpr std::size_t kMacBufferSize = 20;  // a MAC text, NUL-padded

// Reads host number `index`, counted from 1. False when its address does not parse, which ends
// every walk of the table.
[[nodiscard]] bool host_read(int index, HostRecord& host);

// Whether a lookup gave a MAC: neither empty text nor all zeros.
bool mac_is_known(const char* mac);

// Upper case, and ":" between the groups.
void mac_normalise(std::span<char> mac);
