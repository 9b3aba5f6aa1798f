// cpectl-platform-check: run on a gateway, it says whether the platform libraries there are what
// cpectl expects.
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "checks.h"

namespace {

constexpr int kFine = 0;
constexpr int kWrong = 1;
constexpr int kUsage = 2;

struct Check {
    const char* name;
    const char* title;
    void (*run)(const Options&);
    bool chosen;
};

Check checks[] = {
    {"nvram", "libnvram.so: the non-volatile store", check_nvram, false},
    {"mvram", "libmvram.so: the second store", check_mvram, false},
    {"netlink", "libnetlink.so: the rates of the WAN links", check_netlink, false},
    {"hostsort", "libhostsort.so: the hosts and their traffic", check_hostsort, false},
    {"wum", "libwum.so: the wireless stations", check_wum, false},
};

constexpr char kHelp[] =
    "usage: cpectl-platform-check [--read-only] [--wait SECONDS] [LIBRARY...]\n"
    "\n"
    "Loads the platform libraries as cpectl does and says what is missing or looks wrong.\n"
    "LIBRARY is one of nvram, mvram, netlink, hostsort, wum; none means all.\n"
    "\n"
    "  --read-only     set no value and commit nothing\n"
    "  --wait SECONDS  how long one library may take (1 to 600, otherwise 10)\n"
    "  -h, --help      print this\n"
    "\n"
    "Without --read-only the key CPECTL_PLATFORM_CHECK is set in both stores, emptied again, and\n"
    "NVRAM is committed with everything that others have set.\n"
    "\n"
    "Exit status: 0 all is as expected, 1 something looks wrong, 2 wrong use.\n";

// Chooses one library by name. False when there is none of this name.
bool choose(const char* name) {
    for (Check& check : checks) {
        if (std::strcmp(check.name, name) != 0) continue;
        check.chosen = true;
        return true;
    }
    return false;
}

bool parse_seconds(const char* text, std::uint32_t& seconds) {
    char* end = nullptr;
    const long value = text ? std::strtol(text, &end, 10) : 0;
    if (!text || end == text || *end || value < 1 || value > 600) return false;
    seconds = static_cast<std::uint32_t>(value);
    return true;
}

// False for a command line that makes no sense.
bool parse(int argc, char** argv, Options& options) {
    bool named = false;
    for (int i = 1; i < argc; i++) {
        if (std::strcmp(argv[i], "--read-only") == 0) {
            options.read_only = true;
        } else if (std::strcmp(argv[i], "--wait") == 0) {
            if (!parse_seconds(argv[++i], options.seconds)) return false;
        } else if (choose(argv[i])) {
            named = true;
        } else {
            return false;
        }
    }
    for (Check& check : checks)
        check.chosen = check.chosen || !named;
    return true;
}

bool wants_help(int argc, char** argv) {
    return argc == 2 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0);
}

}  // namespace

int main(int argc, char** argv) {
    Options options = {false, 10};
    if (wants_help(argc, argv)) return std::fputs(kHelp, stdout) < 0 ? kUsage : kFine;
    if (!parse(argc, argv, options)) {
        (void)std::fputs(kHelp, stderr);
        return kUsage;
    }
    signal(SIGPIPE, SIG_IGN);
    for (const Check& check : checks) {
        if (!check.chosen || run_apart(check.title, check.run, options)) continue;
        std::perror("cpectl-platform-check");
        return kUsage;
    }
    const std::uint32_t wrong = wrongs();
    if (wrong == 0) std::puts("\nNothing looks wrong.");
    if (wrong == 1) std::puts("\n1 thing looks wrong.");
    if (wrong > 1) std::printf("\n%u things look wrong.\n", wrong);
    return wrong == 0 ? kFine : kWrong;
}
