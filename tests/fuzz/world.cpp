// The gateway in memory, for the fuzz entry points.
#include "world.h"

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "main/command.h"
#include "mvram.h"
#include "nvram.h"
#include "platform/monitoring.h"
#include "tools/reply.h"

World world;

namespace {

namespace fs = std::filesystem;

std::map<std::string, std::string> nvram;
std::map<std::string, std::string> mvram;
std::string answer_buffer;  // stores keep one buffer for all values here, as some libraries do

// The folder that holds the gateway's files, below $TMPDIR; whoever starts the run removes it,
// since the fuzzer ends without running exit handlers.
const std::string& folder() {
    static const std::string made = [] {
        std::string name = (fs::temp_directory_path() / "cpectl-fuzz.XXXXXX").string();
        if (!mkdtemp(name.data())) std::abort();
        return name;
    }();
    return made;
}

std::set<std::string> touched;  // the files of this world, to be removed before the next

// Where a path of the gateway lies; other paths, the fuzzer's own, stand as they are.
std::string placed(const char* path) {
    static const char* const kGatewayPaths[] = {
        "/disk/conf",        "/tmp/ipsec_",     "/tmp/pptp_clients", "/tmp/cpectl", "/tmp/pushfile",
        "/tmp/password.tmp", "/etc/router.ver", "/etc/cpectl.cfg",   "/proc/stat",  "/proc/meminfo",
        "/proc/net/dev",     "/proc/sys/net",   "/sys/module/fc"};
    for (const char* prefix : kGatewayPaths) {
        if (std::strncmp(path, prefix, std::strlen(prefix)) != 0) continue;
        const std::string inside = folder() + path;
        if (!fs::is_directory(inside)) touched.insert(inside);
        return inside;
    }
    return path;
}

char* store_get(std::map<std::string, std::string>& store, const char* name) {
    const auto found = store.find(name);
    if (found == store.end()) return nullptr;
    answer_buffer = found->second;
    return answer_buffer.data();
}

// What the shell would do to the files for the command texts that edit them.
void shell_effect(const std::string& text) {
    const std::string move = "mv -f /tmp/cpectl_tmp_write_file ";
    if (text.starts_with(move)) {
        const std::string path = text.substr(move.size(), text.find(" >") - move.size());
        fs::rename(placed("/tmp/cpectl_tmp_write_file"), placed(path.c_str()));
    } else if (text.starts_with("> /disk/conf/")) {
        world_file(text.substr(2, text.find(" >", 2) - 2).c_str(), "");
    } else if (text.starts_with("echo -n > ")) {
        world_file(text.substr(10).c_str(), "");
    }
}

// Closes what the last command left open: the program leaves that to its end, and here a million
// commands run in one process.
void files_close() {
    static const int first_free = [] {
        const int lowest = open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (lowest < 0) std::abort();
        close(lowest);
        return lowest;
    }();
    close_range(static_cast<unsigned>(first_free), ~0U, 0);
}

}  // namespace

void world_begin() {
    files_close();
    world = {};
    nvram.clear();
    mvram.clear();
    for (const std::string& path : touched)
        unlink(path.c_str());
    touched.clear();
    static bool folders_made = false;
    if (!folders_made) {
        for (const char* path :
             {"/disk/conf", "/tmp", "/etc", "/proc/net", "/proc/sys/net/netfilter",
              "/proc/sys/net/ipv4/netfilter", "/sys/module/fc/parameters"})
            fs::create_directories(folder() + path);
        folders_made = true;
    }
    wanFlow = nullptr;
}

void world_file(const char* path, std::string_view content) {
    std::ofstream(placed(path), std::ios::binary) << content;
}

std::string world_file_content(const char* path) {
    std::ostringstream content;
    content << std::ifstream(placed(path), std::ios::binary).rdbuf();
    return content.str();
}

void world_key(const char* name, std::string_view value) {
    nvram[name] = value;
    mvram[name] = value;
}

void world_command(const char* request, const char* text) {
    const CommandEntry* row = command_find(request);
    require(row != nullptr, "the command is in the table");
    cJSON* args = text ? cJSON_Parse(text) : nullptr;
    cJSON* answer = row->handler(row->argc, args);
    require(reply_is_whole(), "no member was lost");
    if (answer) {
        char* line = cJSON_PrintUnformatted(answer);
        require(line != nullptr, "an answer can be printed");
        cJSON* again = cJSON_Parse(line);
        require(again != nullptr, "an answer is JSON");
        require(std::strchr(line, '\n') == nullptr, "an answer is one line");
        cJSON_Delete(again);
        std::free(line);
        cJSON_Delete(answer);
    }
    cJSON_Delete(args);
}

std::uint8_t piece_byte(Pieces& pieces) {
    if (pieces.rest.empty()) return 0;
    const auto byte = static_cast<std::uint8_t>(pieces.rest.front());
    pieces.rest.remove_prefix(1);
    return byte;
}

std::string piece_text(Pieces& pieces) {
    const std::size_t end = pieces.rest.find('\xFE');
    std::string piece(pieces.rest.substr(0, end));
    pieces.rest.remove_prefix(end == std::string_view::npos ? pieces.rest.size() : end + 1);
    return piece;
}

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
}

// ---- The platform libraries ---------------------------------------------------------------------

extern "C" {

char* nvram_get(const char* name) {
    return store_get(nvram, name);
}

int nvram_set(const char* name, const char* value) {
    nvram[name] = value;
    return 0;
}

int nvram_commit(void) {
    return 0;
}

char* mvram_get(const char* name) {
    return store_get(mvram, name);
}

int mvram_set(const char* name, const char* value) {
    mvram[name] = value;
    return 0;
}

int user_netlink_regist(int, int) {
    return 0;
}
int netlink_send_user(int, void*, int length) {
    return length;
}

int netlink_receive_user(int (*callback)(void* reply)) {
    return world.wan_reply.empty() ? -1 : callback(world.wan_reply.data());
}

void user_netlink_unregist(void) {}

int hostsort_info_sort(int, int) {
    return 0;
}
int hostsort_get_total_entry(void) {
    return static_cast<int>(world.hosts.size());
}

int hostsort_get_next(void* record, int index) {
    std::memcpy(record, &world.hosts.at(static_cast<std::size_t>(index) - 1), sizeof(HostRecord));
    return 0;
}

void* Web_STAinfo_Get(void) {
    return world.stations.empty() ? nullptr : world.stations.data();
}
int WUMWTPKickoutSta(int, const char*) {
    return 0;
}

// ---- The C library, as far as the program reaches outside with it ------------------------------

std::FILE* __real_fopen64(const char* path, const char* mode);
int __real_open64(const char* path, int flags, ...);
int __real_access(const char* path, int mode);
int __real_lstat64(const char* path, struct stat* status);
int __real_remove(const char* path);

std::FILE* __wrap_fopen64(const char* path, const char* mode);
int __wrap_open64(const char* path, int flags, ...);
int __wrap_access(const char* path, int mode);
int __wrap_lstat64(const char* path, struct stat* status);
int __wrap_remove(const char* path);
int __wrap_system(const char* text);
std::FILE* __wrap_popen(const char* text, const char* mode);
int __wrap_pclose(std::FILE* stream);
int __wrap_usleep(useconds_t time);

std::FILE* __wrap_fopen64(const char* path, const char* mode) {
    return __real_fopen64(placed(path).c_str(), mode);
}

int __wrap_open64(const char* path, int flags, ...) {
    va_list args;
    va_start(args, flags);
    const int mode = (flags & O_CREAT) ? va_arg(args, int) : 0;
    va_end(args);
    return __real_open64(placed(path).c_str(), flags, mode);
}

int __wrap_access(const char* path, int mode) {
    return __real_access(placed(path).c_str(), mode);
}

int __wrap_lstat64(const char* path, struct stat* status) {
    return __real_lstat64(placed(path).c_str(), status);
}

int __wrap_remove(const char* path) {
    return __real_remove(placed(path).c_str());
}

int __wrap_system(const char* text) {
    world.shell.emplace_back(text);
    shell_effect(text);
    return 0;
}

std::FILE* __wrap_popen(const char* text, const char*) {
    world.shell.emplace_back(text);
    std::FILE* stream = fdopen(memfd_create("captured", MFD_CLOEXEC), "w+");
    const bool is_devices = std::strcmp(text, "cat /proc/net/dev") == 0;
    const std::string output = is_devices ? world_file_content("/proc/net/dev") : world.captured;
    if (!stream || std::fwrite(output.data(), 1, output.size(), stream) != output.size()) abort();
    std::rewind(stream);
    return stream;
}

int __wrap_pclose(std::FILE* stream) {
    return std::fclose(stream);
}
int __wrap_usleep(useconds_t) {
    return 0;
}

// ---- The network --------------------------------------------------------------------------------

int __wrap__Z7get_macPKcPc(const char* ip, char* out);
int __wrap__Z9getpppnicPKc(const char* name);
int __wrap__Z6getnicPKcS0_Pc(const char* name, const char* option, char* out);
int __wrap__Z6getUrlPKcS0_(const char* path, const char* url);

int __wrap__Z7get_macPKcPc(const char* ip, char* out) {
    if (std::strlen(ip) % 5 == 0) return -1;  // some are not known
    std::memcpy(out, "02:00:5e:00:00:0a", 18);
    return 0;
}

int __wrap__Z9getpppnicPKc(const char* name) {
    return std::strlen(name) < 16 ? 0 : 1;
}

int __wrap__Z6getnicPKcS0_Pc(const char*, const char*, char* out) {
    std::memcpy(out, "192.0.2.255", 12);
    return 0;
}

int __wrap__Z6getUrlPKcS0_(const char* path, const char*) {
    world_file(path, world.offer);
    return 1;
}

}  // extern "C"
