// Questions to the kernel about network interfaces and neighbours.
//
// Each opens a datagram socket, asks once and closes it; nothing is kept but the text buffer of
// hwaddr() and the C library's buffer behind inetaddr(). Interface names are cut at 15 characters,
// as the kernel's are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

inline constexpr std::size_t kMacTextSize = 18;       // "aa:bb:cc:dd:ee:ff"
inline constexpr std::size_t kAddressTextSize = 16;   // "255.255.255.255"
inline constexpr std::size_t kTrafficTextSize = 128;  // what speed_get() may need

// 0 when the interface exists and has an IPv4 address (up or down), 1 otherwise.
int getpppnic(const char* name);

// One address of an interface as text: "-i" its own, "-b" broadcast, "-m" mask, "-g" the
// point-to-point peer, "-w" the hardware address in upper case. Returns 0; 1 for another option or
// a failed request, with `out` untouched. `out` holds at least 16 bytes, 18 for "-w".
int getnic(const char* name, const char* option, char* out);

// Six bytes as upper-case "AA:BB:CC:DD:EE:FF", in a buffer that the next call overwrites.
char* hwaddr(const unsigned char* bytes);

// An IPv4 address in network order as dotted text, in a buffer that the next call overwrites.
char* inetaddr(std::uint32_t address);

// The MAC address of an IPv4 neighbour on the LAN device eth0.5, in lower case. Returns 0; -1 when
// the kernel knows none, with `out` (at least 18 bytes) untouched.
int get_mac(const char* ip, char* out);

// Bytes received and sent since the interface came up, "%u(%.1fMB)/%u(%.1fMB)", each taken
// modulo 2^32. Returns 0, also for an interface that is not listed (`out`, at least 128 bytes, is
// then untouched) and for a name of more than 11 characters, which is never found; -1 when
// no process can be made to read /proc/net/dev.
int speed_get(const char* name, char* out);
