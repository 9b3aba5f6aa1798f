// The control sockets of hostapd: one for each of its interfaces, all in one folder.
//
// The connection is libwpa-client's. Its own request call is not used, as that waits ten seconds
// for a daemon that has stopped answering, and this program has a caller waiting.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include <wpa_ctrl.h>

inline constexpr std::size_t kSocketMax = 32;       // interfaces; any more are left out
inline constexpr std::size_t kSocketNameSize = 32;  // interface names have 15 characters at most
inline constexpr std::size_t kReplySize = 4096;     // what the daemon sends at most

struct SocketName {
    char text[kSocketNameSize];
};

// Writes the names of the sockets, in alphabetical order, and returns how many there are.
std::size_t sockets_list(std::span<SocketName, kSocketMax> names);

// Connects to a socket; null when nobody listens there. The owner closes it with wpa_ctrl_close().
wpa_ctrl* control_open(const SocketName& name);

// Sends a command and waits for its answer until the clock shows `deadline`, but no longer than
// half a second. The answer lies in `buffer`. False when there was none in time: the connection is
// of no more use then, since the answer may still come.
[[nodiscard]] bool control_ask(wpa_ctrl* control, std::string_view command, std::int64_t deadline,
                               std::span<char, kReplySize> buffer, std::string_view& reply);
