// The stations of one hostapd interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "wum/control.h"
#include "wum/text.h"

inline constexpr std::size_t kWalkMax = 2048;  // the daemon itself allows 2007

struct WalkedStation {
    Mac mac;
    bool is_associated;  // and not just on the way in or out
};

// Asks for all stations, one after the other, until the clock shows `deadline` at the latest. The
// result is the walk's own and is gone with the next call. A station that leaves meanwhile is not
// in it, one that comes may be. When the daemon stops answering, it is what was known by then.
std::span<const WalkedStation> stations_walk(wpa_ctrl* control, std::int64_t deadline);
