// Texts of the kernel: load, memory, device counters, counts of hosts and connections, uptime.
#include "tools/netif.h"
#include "world.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Pieces pieces{{reinterpret_cast<const char*>(data), size}};
    const std::uint8_t kernel = piece_byte(pieces);
    const std::string text = piece_text(pieces);
    const std::string device = piece_text(pieces).c_str();

    world_begin();
    world_key("KERNEL_TYPE", std::string(1, static_cast<char>('0' + kernel % 5)));
    for (const char* path : {"/proc/stat", "/proc/meminfo", "/proc/net/dev",
                             "/proc/sys/net/netfilter/nf_conntrack_count",
                             "/proc/sys/net/ipv4/netfilter/ip_conntrack_count",
                             "/sys/module/fc/parameters/active_host"})
        world_file(path, text);
    world.captured = text;
    world_command("getCpuMemLoad", nullptr);
    world_command("getHostNum", nullptr);
    world_command("gwDevListGet", nullptr);

    char traffic[kTrafficTextSize] = {};
    require(speed_get(device.c_str(), traffic) == 0, "the counters are read");
    world_key("PPTPC_DEV", device);
    world_command("pptpcStaGet", nullptr);
    return 0;
}
