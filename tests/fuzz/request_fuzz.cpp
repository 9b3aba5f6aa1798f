// Argument text, as it arrives, through the whole dispatch into each handler.
#include <cstring>

#include "main/command.h"
#include "world.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::size_t kLongestText = 1023;

// Some state that handlers meet: keys, a tunnel, a user, a host, a reply.
void world_usual() {
    world_begin();
    for (const char* key : {"WAN1_TYPE", "WAN2_TYPE", "LAN_IP", "HOSTNAME", "PPTPD_REMOTEIP_START"})
        world_key(key, "192.0.2.1");
    world_file("/disk/conf/ipsec.cfg", "tun1 a b c d 192.0.2.9 e\ntun10 a b c d 0.0.0.0 e\n");
    world_file("/disk/conf/pptpuser.cfg", "ann secret\n");
    world_file("/tmp/pptp_clients", "1 ann 192.0.2.1 192.0.2.2 192.0.2.3\n");
    world.captured = "V1.0 build\n";
    world.offer = R"({"msg":{"path":"http://h/a/b","textNotes":"n","md5":"m","type":"t"}})";
}

}  // namespace

// The first byte picks the command, the rest is the argument text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || size > kLongestText + 1) return 0;
    world_usual();
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    world_command(handle[data[0] % kCommandCount].name, text.c_str());
    return 0;
}
