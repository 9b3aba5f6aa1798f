// The reply and the records of a hostile platform library.
#include <algorithm>
#include <cstring>

#include "world.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

// As many records as the data holds, up to `most`.
template <typename Record>
std::vector<Record> records(std::string_view data, std::size_t most) {
    std::vector<Record> made(std::min(data.size() / sizeof(Record), most));
    if (!made.empty()) std::memcpy(made.data(), data.data(), made.size() * sizeof(Record));
    return made;
}

// A reply that holds as many entries as it says, however odd they are.
void wan_reply_make(std::string_view data) {
    if (data.size() < sizeof(WanRateReply)) return;
    world.wan_reply.assign(data.begin(), data.end());
    const auto held =
        static_cast<std::int32_t>((data.size() - sizeof(WanRateReply)) / sizeof(WanRateEntry));
    WanRateReply head;
    std::memcpy(&head, world.wan_reply.data(), sizeof head);
    head.count = std::min(head.count, held);
    std::memcpy(world.wan_reply.data(), &head, sizeof head);
}

// A list in the order of the records; its last one leads back to one of them, or ends it.
void stations_link(bool ring) {
    std::vector<StationRecord>& stations = world.stations;
    if (stations.empty()) return;
    for (std::size_t i = 0; i + 1 < stations.size(); i++)
        stations[i].next = &stations[i + 1];
    stations.back().next = ring ? &stations[stations.back().flags % stations.size()] : nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Pieces pieces{{reinterpret_cast<const char*>(data), size}};
    const std::uint8_t what = piece_byte(pieces);
    world_begin();
    if (what % 2 == 0) {
        wan_reply_make(pieces.rest);
        world_command("getWanFlowinfo", nullptr);
        return 0;
    }
    const std::size_t half = pieces.rest.size() / 2;
    world.hosts = records<HostRecord>(pieces.rest.substr(0, half), 400);
    world.stations = records<StationRecord>(pieces.rest.substr(half), 400);
    stations_link((what & 2) != 0);
    world_command("getHostFlowinfo", nullptr);
    world_command("getStaList", nullptr);
    world_command("setStaList", nullptr);
    return 0;
}
