// The answer of the over-the-air check server.
#include "world.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    world_begin();
    world.offer.assign(reinterpret_cast<const char*>(data), size);
    world_command("checkOta", nullptr);
    return 0;
}
