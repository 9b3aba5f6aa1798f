// Firmware, beside its handlers: the offer that an over-the-air check brings.
#pragma once

#include <span>

struct cJSON;

// A firmware offer. The fields are filled by plain copies, one behind the other: a value that is
// longer than its field runs over into the next ones.
struct PushInfo {
    char path[512];  // where the firmware can be had
    char name[64];   // what follows the last "/" of the path
    char notes[512];
    char md5[128];
    char type[10];
};
static_assert(sizeof(PushInfo) == 1226);

// Fills a PushInfo, at the start of `info`, from the answer of the check server. What is behind it
// in `info` takes what the last fields do not hold; nothing is written beyond. Returns 0; -1 when
// a member is missing or no text.
int get_push_info(const cJSON* answer, std::span<char> info);
