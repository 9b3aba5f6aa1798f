// The walk through an interface's stations; see walk.h.
#include "wum/walk.h"

#include <stdio.h>
#include <string.h>

// The daemon hands out its list by "the first one" and "the one after X", and the list changes
// while we ask. So these are the stations on the way, in the daemon's order as far as it is known.
static WalkedStation stations[kWalkMax];
static std::size_t station_count;

static constexpr std::size_t kNowhere = SIZE_MAX;  // before the first station

// Every station costs one question, one that has left another one; the rest is room for lists that
// keep changing. A daemon that never comes to an end is left after that.
static constexpr int kQuestionMax = 3 * kWalkMax;

// A search from the start for each station: the question that goes with it takes longer by far.
static std::size_t station_find(const Mac& mac) {
    for (std::size_t i = 0; i < station_count; i++)
        if (memcmp(&stations[i].mac, &mac, sizeof mac) == 0) return i;
    return kNowhere;
}

static void station_remove(std::size_t at) {
    station_count--;
    memmove(&stations[at], &stations[at + 1], (station_count - at) * sizeof stations[0]);
}

static bool is_associated(std::string_view reply) {
    std::string_view flags;
    if (!line_value(reply, "flags=", flags)) return true;
    // Drivers without association of their own, as on wires, know the second one only.
    return flags.find("[ASSOC]") != flags.npos || flags.find("[AUTHORIZED]") != flags.npos;
}

static std::string_view question_print(std::size_t at, char (&out)[32]) {
    int length = snprintf(out, sizeof out, "STA-FIRST");
    if (at != kNowhere) {
        const std::uint8_t* mac = stations[at].mac.bytes;
        length = snprintf(out, sizeof out, "STA-NEXT %02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1],
                          mac[2], mac[3], mac[4], mac[5]);
    }
    return {out, static_cast<std::size_t>(length)};
}

// Notes the station that an answer is about and moves on to it. A station that is known already has
// changed its place in the list: then the walk just continues from there.
static bool station_note(const Mac& mac, std::string_view reply, std::size_t& at) {
    at = station_find(mac);
    if (at != kNowhere) return true;
    if (station_count == kWalkMax) return false;
    at = station_count++;
    stations[at] = {mac, is_associated(reply)};
    return true;
}

// Takes one answer. False at the end of the list, and where there is no list.
static bool answer_take(std::string_view reply, std::size_t& at) {
    std::string_view rest = reply;
    std::string_view line;
    Mac mac;
    if (!line_take(rest, line)) return false;
    if (mac_read(line, mac)) return station_note(mac, reply, at);
    if (at == kNowhere || line != "FAIL") return false;

    // The station we stood at has left: back to the one before it.
    station_remove(at);
    at = at == 0 ? kNowhere : at - 1;
    return true;
}

std::span<const WalkedStation> stations_walk(wpa_ctrl* control, std::int64_t deadline) {
    char buffer[kReplySize];
    station_count = 0;
    std::size_t at = kNowhere;
    for (int questions = 0; questions < kQuestionMax; questions++) {
        char question[32];
        std::string_view reply;
        const std::string_view text = question_print(at, question);
        if (!control_ask(control, text, deadline, buffer, reply)) break;
        if (!answer_take(reply, at)) break;
    }
    return {stations, station_count};
}
