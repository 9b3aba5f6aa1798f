// The gateway in memory, for the fuzz entry points: stores, files, scripts, devices.
//
// The program's own calls are answered here (see the --wrap options in CMakeLists.txt): files of
// the gateway lie in a private folder, no process is started, nothing sleeps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "hostsort.h"
#include "netlink_user.h"
#include "wum.h"

struct World {
    std::string captured;                 // what every captured command prints
    std::vector<HostRecord> hosts;        // the host table
    std::vector<StationRecord> stations;  // the station list
    std::vector<std::uint8_t> wan_reply;  // empty: no reply
    std::string offer;                    // what a download brings
    std::vector<std::string> shell;       // command texts that were run, in order
};

// The one world; reset by world_begin().
extern World world;

// A fresh world: no keys, no files.
void world_begin();

// Gives a file of the gateway its content, and reads one ("" when there is none).
void world_file(const char* path, std::string_view content);
std::string world_file_content(const char* path);

void world_key(const char* name, std::string_view value);

// Runs a command as main does, with the argument text as it stands; fails when the answer cannot be
// printed and parsed again.
void world_command(const char* request, const char* text);

// Takes pieces off fuzz data.
struct Pieces {
    std::string_view rest;
};
std::uint8_t piece_byte(Pieces& pieces);
// Up to the next separator (byte 0xFE), which valid text never holds.
std::string piece_text(Pieces& pieces);

// Ends the run with a message when a promise is broken.
void require(bool holds, const char* what);
