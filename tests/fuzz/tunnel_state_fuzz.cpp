// The tunnel file joined with the status text of the IPsec daemon.
#include "world.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Pieces pieces{{reinterpret_cast<const char*>(data), size}};
    world_begin();
    world_file("/disk/conf/ipsec.cfg", piece_text(pieces));
    world_file("/tmp/ipsec_state_tmp", piece_text(pieces));
    world_file("/tmp/ipsec_eroute_tmp", piece_text(pieces));
    world_command("ipsecTunStaGet", nullptr);
    return 0;
}
