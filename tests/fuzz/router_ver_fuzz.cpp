// What the shell captures of the firmware description and of the stores.
#include "world.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

// Whether the quotes of a command text are closed again, so that nothing in it runs on.
bool quotes_are_closed(const std::string& text) {
    char open = '\0';
    for (std::size_t i = 0; i < text.size(); i++) {
        const char c = text[i];
        if (c == '\\' && open != '\'') {
            i++;
        } else if (open == '\0' && (c == '\'' || c == '"')) {
            open = c;
        } else if (c == open) {
            open = '\0';
        }
    }
    return open == '\0';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    world_begin();
    world.captured.assign(reinterpret_cast<const char*>(data), size);
    world_command("getBaseInfo", nullptr);
    world_command("localcfgUpdate", nullptr);
    world_command("checkOta", nullptr);
    for (const std::string& text : world.shell)
        require(quotes_are_closed(text), "a captured value cannot leave its quotes");
    return 0;
}
