// The list of connected PPTP clients.
#include "world.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    world_begin();
    world_file("/tmp/pptp_clients", {reinterpret_cast<const char*>(data), size});
    world_command("pptpdUserStaGet", nullptr);
    return 0;
}
