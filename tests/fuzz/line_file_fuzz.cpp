// Line files: a name and a file, against plain statements of what each edit keeps.
#include <sstream>

#include "tools/line_file.h"
#include "world.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr char kPath[] = "/disk/conf/ipsec.cfg";

// What deleting `name` leaves of a file whose lines are shorter than one read.
std::string without(const std::string& content, const std::string& name) {
    std::string kept;
    for (std::size_t at = 0; at < content.size();) {
        std::size_t end = content.find('\n', at);
        end = end == std::string::npos ? content.size() : end + 1;
        const std::string line = content.substr(at, end - at);
        const std::size_t blank = line.substr(0, 127).find(' ');
        if (blank != std::string::npos && !name.starts_with(line.substr(0, blank))) kept += line;
        at = end;
    }
    return kept;
}

bool has_long_line_or_nul(const std::string& content) {
    if (content.find('\0') != std::string::npos) return true;
    std::istringstream lines(content);
    for (std::string line; std::getline(lines, line);) {
        if (line.size() > 4000) return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Pieces pieces{{reinterpret_cast<const char*>(data), size}};
    const std::string name = piece_text(pieces).c_str();
    const std::string line = piece_text(pieces).c_str();
    const std::string content(pieces.rest);

    world_begin();
    world_file(kPath, content);
    const int number = find_name_which_line(name.c_str(), kPath);
    require(number >= 0, "a file that is there can be searched");
    for (const std::size_t line_size : {std::size_t{1024}, std::size_t{4096}}) {
        const int found = line_file_has(name.c_str(), kPath, line_size);
        require(found == 0 || found == 1, "a search answers yes or no");
    }
    require(del_line(name.c_str(), kPath) == 0, "a line can be deleted");
    const std::string left = world_file_content(kPath);
    if (!has_long_line_or_nul(content))
        require(left == without(content, name), "every other line is kept as it was");

    require(add_line(line.c_str(), kPath) == 0, "a line can be added");
    require(world_file_content(kPath) == left + line + "\n", "a line is added at the end");
    return 0;
}
