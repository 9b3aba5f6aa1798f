// The check of the wireless stations: the layout of the records, and that the list ends.
#include <cstring>

#include "checks.h"
#include "library.h"
#include "wum.h"

namespace {

constexpr int kMostStations = 4096;

// The fields are taken out one by one: a record of another layout may lie anywhere.
bool station_read(const void* address, int number, StationRecord& station) {
    if (!is_readable(address, sizeof station)) {
        say_wrong(
            "station %d lies where no memory is: the layout of the record may differ "
            "(\"next\" is expected at byte %zu)",
            number, offsetof(StationRecord, next));
        return false;
    }
    std::memcpy(&station, address, sizeof station);
    return true;
}

bool check_ip(const StationRecord& station, int number) {
    char shown[sizeof station.ip + 1] = {};
    std::memcpy(shown, station.ip, sizeof station.ip);
    if (is_address(shown)) return true;
    if (!*shown) {
        say_note("station %d has no address (yet)", number);
        return true;
    }
    printable(shown, sizeof shown, station.ip, sizeof station.ip);
    say_wrong(
        "station %d: \"%s\" is no IPv4 address: the layout of the record may differ (\"ip\" "
        "is expected at byte %zu)",
        number, shown, offsetof(StationRecord, ip));
    return false;
}

bool check_ssid(const StationRecord& station, int number) {
    constexpr std::size_t kLongestSsid = 32;
    if (!(station.flags & kStationSsidValid)) return true;
    const std::size_t length = strnlen(station.ssid, sizeof station.ssid);
    if (length > 0 && length <= kLongestSsid) return true;
    say_wrong(
        "station %d: its SSID is said to be valid and has %zu bytes%s: the layout of the "
        "record may differ (\"ssid\" is expected at byte %zu, \"flags\" at %zu)",
        number, length, length == sizeof station.ssid ? " without an end" : "",
        offsetof(StationRecord, ssid), offsetof(StationRecord, flags));
    return false;
}

// Walks the list. The number of stations, or -1 when something is wrong, which is said.
int check_list(const void* first, bool& ssid_seen) {
    int count = 0;
    for (const void* at = first; at; count++) {
        if (count == kMostStations) {
            say_wrong("the list does not end within %d stations: cpectl would never answer",
                      kMostStations);
            return -1;
        }
        doing("reading station %d", count + 1);
        StationRecord station;
        if (!station_read(at, count + 1, station)) return -1;
        if (!check_ip(station, count + 1) || !check_ssid(station, count + 1)) return -1;
        ssid_seen = ssid_seen || (station.flags & kStationSsidValid);
        at = station.next;
    }
    return count;
}

}  // namespace

void check_wum(const Options&) {
    const char* const calls[] = {"Web_STAinfo_Get", "WUMWTPKickoutSta", nullptr};
    void* found[2];
    if (!library_open("libwum.so", calls, found)) return;

    doing("calling Web_STAinfo_Get");
    const void* first = reinterpret_cast<decltype(Web_STAinfo_Get)*>(found[0])();
    bool ssid_seen = false;
    const int count = check_list(first, ssid_seen);
    if (count > 0) say_ok("%d stations, all with plausible records; the list ends", count);
    if (count > 0 && !ssid_seen)
        say_note("no station has a valid SSID (bit 0 of \"flags\"): answers will show none");
    if (count == 0)
        say_note(
            "no station is associated: the layout of the records was not seen. Connect one and "
            "check again");
    say_note("WUMWTPKickoutSta was not called: it would send a station away");
}
